// What a JScript user relies on, checked on the demo form; one line per check.
var failures = 0;
function check(what, ok) {
  app.echo(ok ? "ok" : "NOT OK", "-", what);
  if (!ok) failures++;
}
var edit = app.find("nameEdit"), box = app.find("agreeBox"), ok = app.find("okButton");

// Strings in and out: a QString argument, a byte-string argument, QString and QByteArray results.
edit.QLineEdit_setText("Grace");
check("string in, string out", app.text(edit.QLineEdit_text()) === "Grace");
check("byte string in", app.text(ok.QAbstractButton_trUtf8_2("h\u00e9llo", "", -1)) === "h\u00e9llo");
var made = app.str("made here");
edit.QLineEdit_setText(made);
check("a QString object passed back", app.text(edit.QLineEdit_text()) === "made here");
check("QByteArray text", app.text(made.QString_toUtf8()) === "made here");

// Booleans are script booleans.
box.QAbstractButton_setChecked(true);
check("bool result is true", box.QAbstractButton_isChecked() === true);
box.QAbstractButton_setChecked(false);
check("bool result is false", box.QAbstractButton_isChecked() === false);

// A null pointer result is null.
var group = ok.QAbstractButton_group();
check("null result", group === null && app.isNull(group));
check("unknown object name", app.find("noSuchWidget") === null);

// A foreign object or null where an object is expected is refused.
var refused = 0;
var why = "";
try { edit.QLineEdit_setText({}); } catch (e) { refused = e.number; why = e.message; }
check("foreign object refused with DISP_E_TYPEMISMATCH", (refused >>> 0) === 0x80020005);
check("the refusal is described", why.indexOf("argument 1 of void QLineEdit::setText") >= 0);
refused = 0;
try { edit.QLineEdit_setText(null); } catch (e) { refused = e.number; }
check("null refused", (refused >>> 0) === 0x80020005);
check("alive after refusals", app.text(edit.QLineEdit_text()) === "made here");

// Ten thousand calls, objects made and dropped on the way.
for (var i = 0; i < 10000; i++) {
  box.QAbstractButton_setChecked(i % 2 == 0);
  if (i % 10 == 0) edit.QLineEdit_text();
}
check("ten thousand calls", box.QAbstractButton_isChecked() === false);
box.QAbstractButton_setChecked(true);
ok.QAbstractButton_click();
app.processEvents();
app.echo(failures == 0 ? "checks: all passed" : "checks: " + failures + " FAILED");
