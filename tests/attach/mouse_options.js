// Clicks and drags with a button and modifiers, in a line edit of Qt's
// line edits example: what each selects is read back from the edit.
function ms(act) {
  var start = new Date().getTime();
  act();
  return new Date().getTime() - start;
}
var edit = app.query('QGroupBox[title="Alignment"] QLineEdit');
app.type(edit, "hello world");
var y = edit.height / 2;
// what is done, how, what is selected afterwards
var cases = [
  ["Home, then a Shift+click", function () {
    app.key(edit, "Home");
    app.click(edit, 40, y, {modifiers: "Shift"});
  }, "hello "],
  ["a plain click", function () { app.click(edit, 40, y); }, ""],
  ["a drag from the start", function () { app.drag(edit, 2, y, edit, 40, y); }, "hello "],
  ["a right click, then Select All in its menu", function () {
    app.click(edit, 40, y, {button: "right"});
    app.menu(app.waitFor("QMenu:visible", 3000), "Select All");
  }, "hello world"]
];
for (var i = 0; i < cases.length; ++i) {
  cases[i][1]();
  app.echo(cases[i][0] + ' selects "' + edit.selectedText + '"');
}
app.echo("a menu is left open:", app.query("QMenu:visible") != null);
// A menu closed by a key or by its entry returns as fast as any event.
var closers = [["Escape", function (menu) { app.key(menu, "Escape"); }],
               ["its entry Select All", function (menu) { app.menu(menu, "Select All"); }]];
for (var i = 0; i < closers.length; ++i) {
  app.click(edit, 40, y, {button: "right"});
  var menu = app.waitFor("QMenu:visible", 3000);
  var took = ms(function () { closers[i][1](menu); });
  app.echo("the context menu closed by " + closers[i][0] + " in " + took + " ms; open still:",
           app.query("QMenu:visible") != null);
}
// Options it does not know are refused with what it does know.
var wrong = [{button: "fourth"}, {modifiers: "Shift+Hyper"}, "button=left colour=red"];
for (var i = 0; i < wrong.length; ++i) {
  try {
    app.click(edit, wrong[i]);
    app.echo("accepted", i);
  } catch (e) {
    app.echo("refused:", e.message);
  }
}
