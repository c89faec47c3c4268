// Arguments Qt must never receive: each is refused with what was wrong
// with it, and the application lives on.
var edit = app.query("QLineEdit"), win = edit.window(), rect = edit.rect();
var cases = [
  ["an attribute out of its enumeration", function () { edit.testAttribute(2147483647); }],
  ["a colour role out of its enumeration", function () { edit.setBackgroundRole(2147483647); }],
  ["a number out of int", function () { edit.resize(1e300, 1); }],
  ["flags out of their values", function () { edit.setAlignment(0x7fff0000); }],
  ["a window made its child's child", function () { win.setParent(edit); }],
  ["a widget made its own child", function () { edit.QWidget_setParent(edit); }],
  ["an object of another class", function () { edit.QWidget_setFont(rect); }],
  ["a name of no enumerator", function () { edit.setAlignment("AlignNowhere"); }],
  ["numbers for addresses", function () { edit.QWidget_getContentsMargins(1, 2, 3, 4); }],
  ["null for an event", function () { edit.event(null); }],
  ["an address as a result", function () { edit.qt_metacast("QWidget"); }],
  ["a widget left neither window nor child", function () {
    var box = app.query("QGroupBox:1"), combo = app.query("QGroupBox:1 QComboBox");
    box.setParent(null);
    box.overrideWindowFlags(0);
    combo.raise();  // Qt crashed here
  }]
];
for (var i = 0; i < cases.length; ++i) {
  var said = "(no error)";
  try { cases[i][1](); } catch (e) { said = e.message; }
  app.echo("refused, " + cases[i][0] + ": " + said);
}
app.echo("the application answers: " + edit.window().isVisible());
