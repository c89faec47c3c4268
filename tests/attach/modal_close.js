// Modal dialogs of Qt's standard dialogs example closed by a click, by
// Escape and by Return: each call returns about as fast as an ordinary
// click (attach_test.sh holds them to a loose bound), and the answer
// reaches the example's label.
function ms(act) {
  var start = new Date().getTime();
  act();
  return new Date().getTime() - start;
}
function clickOn(selector) {
  return function () { app.click(app.query(selector)); };
}
function press(key) {
  return function () { app.key(app.activeModal(), key); };
}
app.echo("an ordinary click took", ms(clickOn("QCheckBox:visible")), "ms");
// opened by, closed by, how, what the label then reads
var cases = [
  ["QMessageBox::&question()", "a click on No", clickOn('QMessageBox:visible QPushButton[text="&No"]'), "No"],
  ["QMessageBox::&question()", "Escape", press("Escape"), "Cancel"],
  ["QMessageBox::&question()", "Return", press("Return"), "Yes"],
  ["QInputDialog::get&Int()", "a click on OK", clickOn('QInputDialog:visible QPushButton[text="OK"]'), "25%"]
];
for (var i = 0; i < cases.length; ++i) {
  var c = cases[i];
  app.click(app.query('QPushButton[text="' + c[0] + '"]'));  // returns while the dialog is open
  if (app.waitFor("QDialog:visible", 5000) == null) throw new Error("no dialog from " + c[0]);
  var took = ms(c[2]);
  var label = app.query('QLabel[text="' + c[3] + '"]');
  app.echo(c[0], "closed by", c[1], "in", took, "ms; the label reads", label != null ? label.text : "something else",
           "; a modal dialog is left:", app.activeModal() != null);
}
