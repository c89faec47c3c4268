// In Qt's standard dialogs example, in turns: an ordinary app.click (a
// check box toggled) and an app.click that closes a modal dialog (the No of
// a question box, opened by a click before each turn). Medians of each, and
// their ratio.
function ms(act) {
  var start = new Date().getTime();
  act();
  return new Date().getTime() - start;
}
function median(values) {
  values.sort(function (a, b) { return a - b; });
  return values[Math.floor(values.length / 2)];
}
var check = app.query("QCheckBox:visible");
var open = app.query('QPushButton[text="QMessageBox::&question()"]');
var ordinary = [], closing = [];
for (var turn = 0; turn < 15; ++turn) {
  ordinary.push(ms(function () { app.click(check); }));
  app.click(open);  // returns while the box is open
  var no = app.waitFor('QMessageBox:visible QPushButton[text="&No"]', 5000);
  closing.push(ms(function () { app.click(no); }));
}
var a = median(ordinary), b = median(closing);
app.echo("ordinary app.click: " + a + " ms, app.click closing a modal dialog: " + b + " ms (medians of 15)");
app.echo("ratio, closing a modal dialog / ordinary click: " + (a > 0 ? (b / a).toFixed(2) : "?") + " (goal <= 1.5)");
