// A long document in Qt's application example, for the object tree to cut.
var editor = app.query("MainWindow QPlainTextEdit");
var text = "";
for (var i = 0; i < 100; i++) text += "Line " + i + " of a long document.\n";
editor.plainText = text;
app.checkEqual(editor.plainText.length, text.length, "the whole document is in the editor");
app.echo(editor);
