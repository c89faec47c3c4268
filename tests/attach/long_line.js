// One line of 70 MB, over what one message between the agent and kwscript
// may hold, then a short line: both arrive whole, and so does the status.
var line = "0123456789abcdef";
while (line.length < 64 * 1024 * 1024) line += line;
line += line.substr(0, 6 * 1024 * 1024);
app.echo(line);
app.echo("after the long line");
