// Opens a modal input dialog of Qt's standard dialogs example by a posted
// click and ends while the dialog waits for an answer.
app.post(app.query('QPushButton[text="QInputDialog::get&Int()"]'), "QAbstractButton_click");
app.echo("opened:", app.waitFor("QInputDialog:visible", 10000));
