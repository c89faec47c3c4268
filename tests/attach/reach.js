// What a script reaches in Qt's config dialog example as Qt's own code
// would, with nothing worked around: every class of an object's chain and
// QObject's members, the list's model and its items, arguments with
// defaults, enumerators by name, values made by their constructors, and the
// objects --tree lists that no class of the library describes.
var list = app.query("QListWidget");
app.echo("QObject members:", list.objectName() === "", list.inherits("QAbstractItemView"),
         list.parent().inherits("QDialog"), list.parent().children().length > 3);
app.echo("item view members:", list.isVisible(), list.isEnabled(), list.currentIndex().row());
var model = list.model();
app.echo("the model:", model.rowCount(), model.data(model.index(1, 0)).toString(),
         model.inherits("QAbstractItemModel"));
var found = list.findItems("Upd", "MatchStartsWith");
app.echo("findItems:", found.length, found[0].text());
list.selectAll();
app.echo("selectAll, then selectedItems:", list.selectedItems().length);
list.clearSelection();
list.scrollToTop();
list.setFocus();
app.echo("clearSelection:", list.selectedItems().length, "; focus:", app.focusWidget().inherits("QListWidget"));
var combo = app.query("QComboBox");
app.echo("findText, its flags left out:", combo.findText(combo.itemText(1)));
var label = app.query('QLabel[text="Server:"]');
label.setAlignment("AlignRight|AlignVCenter");
app.echo("alignment by names:", label.alignment);
label.setAlignment(1);
app.echo("alignment by number:", label.alignment);
var rect = app.value("QRect", 0, 0, 10, 10);
app.echo("values made:", rect.contains(rect), rect.contains(app.value("QPoint", 3, 4)), app.value("QSize", 30, 20).width());
app.echo("objects of classes the library lacks:", app.query("QListModel") != null,
         app.query("QStyledItemDelegate") != null, app.query("QStyledItemDelegate").parent() != null);
try { app.menu(list.window(), "Tools/Nothing"); } catch (e) { app.echo("a menu path refused: " + e.message); }
