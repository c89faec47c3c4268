' A drag moves a scroll bar's handle, and a right click opens the context
' menu of the editor in Qt's application example; options given as text.
' A drag from selected text moves the text (Qt's drag and drop).
Set editor = app.query("MainWindow QPlainTextEdit")
text = "line 0"
For i = 1 To 59: text = text & vbLf & "line " & i: Next
app.type editor, text   ' a line feed is the Return key
app.key editor, "Ctrl+Home"
Set bar = app.query("MainWindow QPlainTextEdit QScrollBar[orientation=""2""]")
' From the handle at the top (just below the arrow button, as wide as the
' bar) down to the bottom of the groove.
w = bar.width
app.echo "the handle at the top: value " & bar.value
app.drag bar, w \ 2, w + 3, bar, w \ 2, bar.height - w - 2, "button=left"
app.echo "the handle dragged: value " & bar.value & " of " & bar.maximum
app.click editor, 40, 40, "button=right modifiers=Shift"
Set menu = app.waitFor("QMenu:visible", 3000)
app.echo "a context menu opened: " & (Not app.isNull(menu))
app.key menu, "Escape"
app.echo "a menu is left open: " & (Not app.isNull(app.query("QMenu:visible")))
app.key editor, "Ctrl+A"
app.type editor, "alpha beta gamma"
app.key editor, "Home"
For i = 1 To 6: app.key editor, "Shift+Right": Next
app.drag editor, 12, 12, editor, editor.width - 40, 12
app.echo "the first word dragged to the end: """ & editor.toPlainText() & """"
