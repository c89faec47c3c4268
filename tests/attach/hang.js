// A call that never returns: a direct call of a button that opens a modal
// dialog runs the dialog's own loop until someone answers it.
app.query('QPushButton[text="QInputDialog::get&Int()"]').click();
app.echo("not reached");
