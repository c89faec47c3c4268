// Presses the flawed button of kwcrashapp, which crashes the application.
app.click(app.query('QPushButton[text="Crash"]'));
app.echo("not reached");
