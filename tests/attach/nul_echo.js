// NULs in what a script prints are written as \0, never end the line.
app.echo("one\u0000two", "three\u0000");
