// Reads the calculator's display.
app.echo("the display reads:", app.query("Calculator > QLineEdit").text);
