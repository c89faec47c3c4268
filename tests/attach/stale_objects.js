// Objects the application or the script destroyed: every later use is a
// catchable "object destroyed" error naming the object, never a crash.
function refusal(use) {
  try { use(); } catch (e) { return e.message; }
  return "(no error)";
}
// A QInputDialog::getInt dialog lives on its slot's stack: gone once answered.
app.click(app.query('QPushButton[text="QInputDialog::get&Int()"]'));
var dialog = app.waitFor("QInputDialog:visible", 5000);
var ok = app.query('QInputDialog:visible QPushButton[text="OK"]');
var spin = app.query("QInputDialog:visible QSpinBox");
app.key(dialog, "Return");
var label = app.query("QLabel");
var uses = [
  ["a member", function () { dialog.isVisible(); }],
  ["a property", function () { return dialog.windowTitle; }],
  ["a prefixed member", function () { spin.QSpinBox_value(); }],
  ["a base class member", function () { spin.QWidget_hide(); }],
  ["an event", function () { app.click(ok); }],
  ["an argument", function () { label.setBuddy(spin); }]
];
for (var i = 0; i < uses.length; ++i) app.echo("stale, " + uses[i][0] + ": " + refusal(uses[i][1]));
// A value the script destroyed itself.
var text = app.str("gone");
text.QString_DTOR_QString();
app.echo("destroyed value, a member: " + refusal(function () { text.QString_size(); }));
app.echo("destroyed value, app.text: " + refusal(function () { app.text(text); }));
app.echo("destroyed value, a property: " + refusal(function () { label.text = text; }));
// Lists say what they hold.
var all = app.queryAll("QPushButton");
app.echo("list.item(-1): " + refusal(function () { all.item(-1); }));
app.echo("list.item(\"abc\"): " + refusal(function () { all.item("abc"); }));
app.echo("list.nothing: " + refusal(function () { return all.nothing; }));
app.echo("the application answers: " + (app.query("QLabel") != null));
