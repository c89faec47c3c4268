// Direct calls that open a modal dialog: each fails within a second of the
// dialog's showing, naming the call and the dialog, and leaves the dialog
// open; the script answers it and the answer reaches the example's label.
function typeInto(selector, text) {
  return function (dialog) {
    var field = app.query("QDialog:visible " + selector);
    field.selectAll();  // a direct call while the first one waits
    app.type(field, text);
    app.key(field, "Return");
  };
}
function press(key) {
  return function (dialog) { app.key(dialog, key); };
}
// opened by, how it is answered, what the label then reads
var cases = [
  ["QInputDialog::get&Int()", typeInto("QSpinBox", "33"), "33%"],
  ["QMessageBox::&question()", press("Escape"), "Cancel"]
];
for (var i = 0; i < cases.length; ++i) {
  var c = cases[i], button = app.query('QPushButton[text="' + c[0] + '"]');
  var start = new Date().getTime();
  try {
    button.click();
    app.echo(c[0], "returned:", app.activeModal());
  } catch (e) {
    app.echo(c[0], "refused in", new Date().getTime() - start, "ms;", e.message);
  }
  var dialog = app.activeModal();
  app.echo(c[0], "left open:", dialog);
  if (dialog != null) c[1](dialog);
  var label = app.waitFor('QLabel[text="' + c[2] + '"]', 3000);
  app.echo(c[0], "answered; the label reads", label != null ? label.text : "something else",
           "; a modal dialog is left:", app.activeModal() != null);
}
