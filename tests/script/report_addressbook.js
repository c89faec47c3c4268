// Three contacts added to Qt's address book through its Tools menu and its
// dialog, checked on the way; the last check is wrong on purpose.
var window = app.query("MainWindow");
var names = ["Ada Lovelace", "Bertrand Russell", "Claude Shannon"];
for (var i = 0; i < names.length; i++) {
  app.menu(window, "Tools/Add Entry...");
  var dialog = app.waitFor("QDialog:visible", 10000);
  app.checkEqual(dialog.windowTitle, "Add a Contact", "the dialog for " + names[i]);
  app.type(app.query("QDialog:visible QLineEdit"), names[i]);
  app.type(app.query("QDialog:visible QTextEdit"), (i + 1) + " Main Street");
  app.click(app.query('QDialog:visible QPushButton[text="OK"]'));
}
app.echo("the last dialog, closed:", dialog);
app.check(app.waitFor("QTableView:visible", 5000), "a table shows them");
app.checkEqual(names.length, 4, "four contacts (wrong on purpose)");
