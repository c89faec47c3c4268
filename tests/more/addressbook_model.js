// Qt's address book example through kwscript's second wrappers set. Its
// TableModel is a QAbstractTableModel, a class the library does not wrap:
// the script finds it, asks it as a QObject and as a model, gives it a
// contact through QAbstractItemModel's own members, and reads everything
// back another way: the tab widget by the object name it was given, the
// contact through the library's QSortFilterProxyModel objects over it.
var failures = 0;
function check(what, got, want) {
  if (got === want) return;
  failures++;
  app.echo("NOT OK -", what + ":", got, "expected", want);
}
function text(object) { return app.text(object); }

var model = app.query("TableModel");
check("the model is wrapped", model != null, true);
check("QObject_inherits(QAbstractTableModel)", model.QObject_inherits("QAbstractTableModel"), true);
check("QObject_inherits(QWidget)", model.QObject_inherits("QWidget"), false);

// QObject's members on the model's owner (AddressWidget, a QTabWidget).
var owner = model.QObject_parent();
check("the owner inherits QTabWidget", owner.QObject_inherits("QTabWidget"), true);
owner.QObject_setObjectName("book");
check("the owner's objectName", text(owner.QObject_objectName()), "book");
check("the selector finds the tab widget by that name", app.query("QTabWidget#book") != null, true);
check("and the model as its child", app.query("#book > QAbstractItemModel") != null, true);

// The model's rows, counted by the model and by the nine proxies (one a tab).
var root = app.query("QTableView").QAbstractItemView_rootIndex();
var proxies = app.queryAll("QSortFilterProxyModel");
function shownByProxies() {
  var shown = [];
  for (var i = 0; i < proxies.count; ++i) {
    var proxy = proxies.item(i);
    for (var row = 0; row < proxy.QSortFilterProxyModel_rowCount(root); ++row)
      shown.push(text(proxy.QSortFilterProxyModel_data(proxy.QSortFilterProxyModel_index(row, 0, root), 0)
                          .QVariant_toString()));
  }
  return shown.join(",");
}
check("nine proxies", proxies.count, 9);
check("no row before", model.QAbstractItemModel_hasIndex(0, 0, root), false);
check("no row shown before", shownByProxies(), "");

// A QVariant made by the model itself (its header: Qt::Horizontal,
// Qt::DisplayRole), set as the first cell's text (Qt::EditRole).
var name = model.QAbstractItemModel_headerData(0, 1, 0);
check("the header", text(name.QVariant_toString()), "Name");
check("insertRows", model.QAbstractItemModel_insertRows(0, 1, root), true);
var cell = model.QAbstractTableModel_index(0, 0, root);
check("setData", model.QAbstractItemModel_setData(cell, name, 2), true);
check("a row now", model.QAbstractItemModel_hasIndex(0, 0, root), true);
check("no second row", model.QAbstractItemModel_hasIndex(1, 0, root), false);
check("shown by the proxy of its tab", shownByProxies(), "Name");

// Objects of other classes only the second set knows, wrapped under them.
check("the delegate", app.query("QTableView > QStyledItemDelegate").QObject_inherits("QAbstractItemDelegate"), true);
check("the animation", app.query("QPropertyAnimation").QObject_inherits("QVariantAnimation"), true);

app.echo(failures == 0 ? "second set: all passed" : "second set: " + failures + " failed");
