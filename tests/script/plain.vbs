' Plain member names and Qt properties on the demo form, in VBScript.
failures = 0
Sub Check(what, ok)
  If ok Then app.echo "ok -", what Else app.echo "NOT OK -", what : failures = failures + 1
End Sub
Set edit = app.find("nameEdit")
Set box = app.find("agreeBox")
edit.text = "Ada"
Check "property written, member reads it", edit.text() = "Ada"
box.checked = True
Check "boolean property", box.checked = True And box.isChecked() = True
edit.setText "Grace"
Check "plain call, property read", edit.text = "Grace"
On Error Resume Next
edit.resize "wide"
Check "the error's description lists the declarations", InStr(Err.Description, "QWidget::resize(int w, int h)") > 0
Err.Clear
On Error GoTo 0
If failures = 0 Then app.echo "plain names: all passed" Else app.echo "plain names:", failures, "failed"
