' Opens a modal input dialog of Qt's standard dialogs example by a posted
' click, finds it while it runs, fills it in and accepts it.
Set button = app.query("QPushButton[text=""QInputDialog::get&Int()""]")
app.post button, "QAbstractButton_click"
Set dialog = app.waitFor("QInputDialog:visible", 10000)
app.echo "dialog:", app.text(dialog.QWidget_windowTitle())
app.query("QInputDialog:visible QSpinBox").QSpinBox_setValue 42
dialog.QDialog_accept
Set label = app.waitFor("QLabel[text=""42%""]", 5000)
app.echo "the label reads", app.text(label.QLabel_text())
app.echo "modal dialogs left:", app.isNull(app.activeModal())
