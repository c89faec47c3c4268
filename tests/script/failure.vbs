' A member that fails: the host reports its own HRESULT and which member it was.
Set button = app.find("okButton")
button.QWidget_windowFlags
app.echo "not reached"
