// Presses the button of kwcrashapp --end-gui-thread, which ends the
// application's GUI thread.
app.click(app.query('QPushButton[text="End"]'));
app.echo("not reached");
