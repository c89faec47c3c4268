// Qt's application example, a text editor: its File menu by Alt+F, text
// typed into it, the window marked modified, all of it selected from the
// editor's context menu, then File/New from the menu answered "Discard".
//   ./scripts/script.sh --launch ../shared/qt48-apps/application.exe -- programs/examples/application.js
var window = app.query("MainWindow");
var editor = app.query("MainWindow QPlainTextEdit");
app.key(editor, "Alt+F");  // the File menu, by its mnemonic
app.echo("Alt+F opened:", app.waitFor("QMenu:visible", 3000).title);
app.key(app.query("QMenu:visible"), "Escape");
app.type(editor, "Hello from outside");
app.echo("the editor holds:", editor.plainText);
app.echo("modified:", window.isWindowModified());
app.click(editor, {button: "right"});  // the editor's own context menu
app.menu(app.waitFor("QMenu:visible", 3000), "Select All");
app.echo("Copy is enabled once the context menu selected all:", app.query('QAction[text="&Copy"]').enabled);
app.menu(window, "File/New");  // returns while the "save changes?" box is open
var box = app.waitFor("QMessageBox:visible", 10000);
app.echo("it asks:", box.text.replace("\n", " "));
app.click(app.query('QMessageBox:visible QPushButton[text="Discard"]'));
app.echo("after Discard the editor holds:", '"' + editor.plainText + '"');
app.type(editor, "A new page");
app.echo("then:", '"' + editor.plainText + '"');
