// Plain member names and Qt properties on the demo form, in JScript.
var failures = 0;
function check(what, ok) {
  app.echo(ok ? "ok" : "NOT OK", "-", what);
  if (!ok) failures++;
}
function error(call) {
  try { call(); } catch (e) { return e.message; }
  return "";
}
var edit = app.find("nameEdit"), box = app.find("agreeBox"), win = edit.window();

// Overloads chosen by count and kind; strings and booleans come back plain.
edit.setText("Ada");
check("setText(string), text() gives a string", edit.text() === "Ada");
win.resize(640, 480);
check("resize(int, int)", win.width() === 640 && win.height() === 480);
var size = win.size();
win.resize(700, 500);
win.resize(size);
check("resize(QSize) with an object", win.width() === 640 && win.height() === 480);
check("bool result", box.isChecked() === false);
var fill = app.str(" ").at(0);
check("a whole number takes the int overload", app.str("%1").arg(5, 3, 10, fill) === "  5");
check("prefixed names unchanged", app.text(edit.QLineEdit_text()) === "Ada");

// Properties: read as values, written through their write accessor.
edit.text = "Grace";
check("text property written", app.text(edit.QLineEdit_text()) === "Grace");
check("text property read", edit.text === "Grace");
box.checked = true;
check("checked property", box.checked === true && box.isChecked() === true);
check("number property", edit.maxLength === 32767);
check("value-object property", edit.geometry.width() === edit.width());

// Errors name what went wrong.
check("wrong kind lists the declarations",
      /resize .*\n.*QWidget::resize\(QSize const &\)/.test(error(function () { win.resize("wide"); })));
check("ambiguous call refused",
      /arg with 4 argument\(s\) of these kinds is ambiguous/.test(error(function () { app.str("%1").arg(5.5, 3, 10, fill); })));
check("read-only property named",
      /property acceptableInput of QLineEdit "nameEdit" is read-only/.test(error(function () { edit.acceptableInput = true; })));
check("an unknown name lists the nearest",
      /QLineEdit has no member or property "setTxt"; the nearest names: .*setText/.test(error(function () { edit.setTxt("x"); })));

// Destructors: refused on the application's objects, run on the script's
// own, after which the object answers "object destroyed".
check("destructor refused on a widget",
      /QLineEdit_DTOR_QLineEdit refused: the application owns this QLineEdit/.test(
          error(function () { edit.QLineEdit_DTOR_QLineEdit(); })));
check("the widget lives on", edit.text === "Grace");
var mine = app.str("mine");
mine.QString_DTOR_QString();
check("a destroyed object refuses calls", /^object destroyed/.test(error(function () { mine.size(); })));
app.echo(failures === 0 ? "plain names: all passed" : "plain names: " + failures + " failed");
