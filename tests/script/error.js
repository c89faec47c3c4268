// A call with a missing argument: the host reports where and why.
var edit = app.find("nameEdit");
edit.QWidget_setAttribute(1);
app.echo("not reached");
