' Qt's standard dialogs example: a modal input dialog opened by a click,
' filled in and answered with the Return key.
'   ./scripts/script.sh --launch ../shared/qt48-apps/standarddialogs.exe -- programs/examples/standarddialogs.vbs
app.click app.query("QPushButton[text=""QInputDialog::get&Text()""]")   ' returns while the dialog is open
Set dialog = app.waitFor("QInputDialog:visible", 10000)
app.echo "the dialog asks:", app.query("QInputDialog:visible QLabel").text
Set edit = app.query("QInputDialog:visible QLineEdit")
app.key edit, "Ctrl+A"
app.type edit, "Ada Lovelace"
app.key dialog, "Return"
Set label = app.waitFor("QLabel[text=""Ada Lovelace""]", 5000)
app.echo "the label reads:", label.text
app.echo "a modal dialog is left:", Not app.isNull(app.activeModal())
