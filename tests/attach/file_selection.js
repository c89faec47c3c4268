// Shift+click and Ctrl+click in the list of Qt's own file dialog (the
// standard dialogs example's "getOpenFileNames", not the native one): the
// files chosen reach the example's label. The dialog opens in the
// application's folder, where the first three files are addressbook.exe,
// application.exe and calculator.exe.
var native = app.query('QCheckBox[text="Use native file dialog."]');
if (native.checked) app.click(native);
// the second click's modifiers, what the label then lists
var cases = [["Shift", "first three"], ["Ctrl", "first and third"]];
for (var i = 0; i < cases.length; ++i) {
  app.click(app.query('QPushButton[text="QFileDialog::&getOpenFileNames()"]'));  // returns while it is open
  app.waitFor("QFileDialog:visible", 5000);
  var list = app.query("QFileDialog:visible #listView");
  // The folder is listed by a thread of its own: the first item may take a moment.
  for (var start = new Date().getTime();;) {
    try {
      app.clickItem(list, 0, 0);
      break;
    } catch (e) {
      if (new Date().getTime() - start > 5000) throw e;
      app.processEvents();
    }
  }
  app.clickItem(list, 2, 0, {modifiers: cases[i][0]});
  app.key(app.query("QFileDialog:visible #fileNameEdit"), "Return");
  var shown = app.queryAll("QLabel:visible");
  for (var j = 0; j < shown.count; ++j)
    if (shown.item(j).text.charAt(0) == "[") app.echo(cases[i][0] + "+click chose the " + cases[i][1] + ": " + shown.item(j).text);
}
