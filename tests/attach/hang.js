// A call that never returns: Qt loops forever making a widget its own parent.
var w = app.query("Calculator > QLineEdit");
w.QWidget_setParent(w);
app.echo("not reached");
