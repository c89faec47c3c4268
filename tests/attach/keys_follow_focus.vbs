' Keys go to whichever widget has the focus when each arrives. In the
' address book's "Add Contact" dialog a Tab typed into the name moves the
' focus, and what follows it lands in the address; in its table, the first
' key typed into a cell opens the cell's editor, and the rest fill it.
Set window = app.query("MainWindow")
app.menu window, "Tools/Add Entry..."
app.waitFor "QDialog:visible", 10000
app.type app.query("QDialog:visible QLineEdit"), "Ada Lovelace" & vbTab & "London"
app.echo "name: """ & app.query("QDialog:visible QLineEdit").text & """"
app.echo "address: """ & app.query("QDialog:visible QTextEdit").plainText & """"
app.click app.query("QDialog:visible QPushButton[text=""OK""]")
Set table = app.waitFor("QTableView:visible", 5000)
' The example's tables are read-only by its own setting; this one is made
' editable by any key, as a QTableView is by default.
table.editTriggers = 16   ' QAbstractItemView::AnyKeyPressed
app.clickItem table, 0, 1
app.type table, "12 Square"
app.key table, "Return"
' Read back through the example's own "Edit Entry" dialog.
app.menu window, "Tools/Edit Entry..."
app.waitFor "QDialog:visible", 10000
app.echo "the edit dialog shows the address: """ & app.query("QDialog:visible QTextEdit").plainText & """"
app.key app.activeModal(), "Escape"
