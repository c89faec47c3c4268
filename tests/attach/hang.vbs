' The same endless loop in VBScript: cut off as well.
app.echo "looping"
Do
Loop
