// A direct call that runs a popup's loop (QMenu::exec) fails as one that
// opens a modal dialog does; the popup stays open until the script closes it.
var menu = app.query("QMenu");
try {
  menu.exec(app.value("QPoint", 100, 100));
  app.echo("exec returned");
} catch (e) {
  app.echo("refused:", e.message);
}
app.echo("popup open:", app.query("QMenu:visible"));
app.key(app.query("QMenu:visible"), "Escape");
app.echo("popup left:", app.query("QMenu:visible"));
