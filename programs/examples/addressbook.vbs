' Qt's address book example: a contact added through the Tools menu and its
' modal dialog, then picked in the table that shows it.
'   ./scripts/script.sh --launch ../shared/qt48-apps/addressbook.exe -- programs/examples/addressbook.vbs
Set window = app.query("MainWindow")
app.menu window, "Tools/Add Entry..."          ' returns while the dialog is open
Set dialog = app.waitFor("QDialog:visible", 10000)
app.echo "the dialog:", dialog.windowTitle
' The name, then Tab on to the address, as a user types them
app.type app.query("QDialog:visible QLineEdit"), "Ada Lovelace" & vbTab & "12 St James's Square, London"
app.click app.query("QDialog:visible QPushButton[text=""OK""]")
Set table = app.waitFor("QTableView:visible", 5000)
app.clickItem table, 0, 0
app.echo "tab shown:", app.query("MainWindow QTabBar").tabText(app.query("MainWindow QTabBar").currentIndex)
app.echo "the row picked, Edit Entry is enabled:", app.query("QAction[text=""&Edit Entry...""]").enabled
