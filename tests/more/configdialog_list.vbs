' Qt's config dialog example through kwscript's second wrappers set, from
' VBScript: the private model of its icon list (a QAbstractListModel) read
' and changed row by row, and checked against the library's QListWidget.
failures = 0
Sub Check(what, got, want)
  If got <> want Then
    failures = failures + 1
    app.echo "NOT OK -", what & ":", got, "expected", want
  End If
End Sub

Set list = app.query("QListWidget")
Set model = app.query("QListWidget > QAbstractListModel")
Check "the model is wrapped", IsObject(model) And Not app.isNull(model), True
Check "it is the list's", model.QObject_parent().QObject_inherits("QListWidget"), True
Set root = list.QAbstractItemView_rootIndex()

' Rows as the model has them, against the list's count and item texts.
rows = 0
Do While model.QAbstractItemModel_hasIndex(rows, 0, root)
  rows = rows + 1
Loop
Check "rows", rows, list.QListWidget_count()
Check "three pages", rows, 3
For row = 0 To rows - 1
  Set cell = model.QAbstractListModel_index(row, 0, root)
  Check "row " & row, app.text(cell.QModelIndex_data(0).QVariant_toString()), _
        app.text(list.QListWidget_item(row).QListWidgetItem_text())
Next

' A text set through the model (its header's QVariant: a list model numbers
' its sections from 1) is the item's text in the list.
Set number = model.QAbstractItemModel_headerData(0, 1, 0)
Check "setData", model.QAbstractItemModel_setData(model.QAbstractListModel_index(2, 0, root), number, 2), True
Check "the third item's text", app.text(list.QListWidget_item(2).QListWidgetItem_text()), "1"

If failures = 0 Then app.echo "second set from VBScript: all passed" Else app.echo "second set: " & failures & " failed"
