// Closes the application's window from its event loop and waits: the
// application ends in the middle of the script.
app.post(app.query("Calculator"), "QWidget_close");
app.waitFor("#nothingNamedSo", 20000);
app.echo("not reached");
