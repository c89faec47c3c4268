// 20,000 menus, each a popup window and a child of the one before: a query
// visits every object once, however deep the windows nest.
var menu = app.query("QMenuBar").addMenu("deep");
for (var i = 1; i < 20000; ++i) menu = menu.addMenu("level " + i);
var start = new Date().getTime();
var all = app.queryAll("QMenu");
var deepest = app.query('QMenu[title="level 19999"]');
app.echo("menus found: " + all.length + ", the deepest: " + (deepest != null) + ", in " +
         (new Date().getTime() - start) + " ms");
