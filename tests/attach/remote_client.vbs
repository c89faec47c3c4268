' Run by cscript in a process of its own: reaches the calculator through the
' name its publishing agent registered, presses 9 and reads the display.
Set app = GetObject("kwQtWrappers." & WScript.Arguments(0))
app.query("Button[text=""Clear All""]").QAbstractButton_click
app.query("Button[text=""9""]").QAbstractButton_click
Set display = app.query("Calculator > QLineEdit")
WScript.Echo "remote display: " & app.text(display.QLineEdit_text())
