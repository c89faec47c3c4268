// Closes the calculator's window, which ends it.
app.query("Calculator").QWidget_close();
app.echo("closing");
