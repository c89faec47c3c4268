// A call without the argument that has no default: the host reports where and why.
var edit = app.find("nameEdit");
edit.QWidget_setAttribute();
app.echo("not reached");
