' Fills the demo form, clicks OK and reads the greeting back.
Set nameEdit = app.find("nameEdit")
nameEdit.QLineEdit_setText "Ada"               ' a script string becomes a QString
app.find("agreeBox").QAbstractButton_setChecked True
app.find("colorBox").QComboBox_setCurrentIndex 2
app.find("okButton").QAbstractButton_click
app.processEvents
Set label = app.find("statusLabel")
app.echo "label says:", app.text(label.QLabel_text())
app.echo "agreed:", app.find("agreeBox").QAbstractButton_isChecked()
