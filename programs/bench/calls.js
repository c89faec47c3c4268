// The cost of one scripted call, for ./scripts/bench.sh: the same call on
// the first line edit of whatever application the script runs in (the
// calculator's display, or the name field of kwscript's own form).
var edit = app.query("QLineEdit");
app.echo("first call answered");
var calls = 20000;
var start = new Date().getTime();
for (var i = 0; i < calls; ++i) edit.QWidget_isVisible();
app.echo("scripted call: " + ((new Date().getTime() - start) * 1000 / calls).toFixed(2) + " us");
