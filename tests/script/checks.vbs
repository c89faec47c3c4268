' What a VBScript user relies on, checked on the demo form; one line per check.
Dim failures : failures = 0
Sub Check(what, ok)
  If ok Then app.echo "ok", "-", what Else app.echo "NOT OK", "-", what : failures = failures + 1
End Sub
Set edit = app.find("nameEdit") : Set box = app.find("agreeBox") : Set okButton = app.find("okButton")

edit.QLineEdit_setText "Grace"
Check "string in, string out", app.text(edit.QLineEdit_text()) = "Grace"
Check "byte string in", app.text(okButton.QAbstractButton_trUtf8_2("héllo", "", -1)) = "héllo"

box.QAbstractButton_setChecked True
Check "bool result is True", box.QAbstractButton_isChecked() = True
Check "Not of a bool result", (Not box.QAbstractButton_isChecked()) = False
box.QAbstractButton_setChecked False
Check "bool result is False", box.QAbstractButton_isChecked() = False

Set group = okButton.QAbstractButton_group()
Check "null result is Nothing", group Is Nothing
Check "unknown object name", app.find("noSuchWidget") Is Nothing

On Error Resume Next
edit.QLineEdit_setText Nothing
refused = Err.Number : why = Err.Description : Err.Clear
On Error GoTo 0
Check "Nothing refused with DISP_E_TYPEMISMATCH", refused = &H80020005
Check "the refusal says which argument of which declaration", _
      InStr(why, "argument 1 of void QLineEdit::setText(QString const &)") > 0
Check "alive after refusal", app.text(edit.QLineEdit_text()) = "Grace"

For i = 1 To 10000
  box.QAbstractButton_setChecked (i Mod 2 = 0)
Next
Check "ten thousand calls", box.QAbstractButton_isChecked() = True
If failures = 0 Then app.echo "checks: all passed" Else app.echo "checks:", failures, "FAILED"
