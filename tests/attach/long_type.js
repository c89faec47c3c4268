// 200,000 characters typed: the time limit stops the typing with the
// script's line (posted at once, Qt delivered them all first: 130 s).
var edit = app.query("QLineEdit");
app.type(edit, new Array(200001).join("x"));
app.echo("not reached");
