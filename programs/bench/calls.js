// The cost of one scripted call, for ./scripts/bench.sh: the same call on
// the first line edit of whatever application the script runs in (the
// calculator's display, or the name field of kwscript's own form), under
// its prefixed name and its plain name, measured in turns.
var edit = app.query("QLineEdit");
app.echo("first call answered");
var calls = 10000, rounds = 4, prefixed = 0, plain = 0;
function time(call) {
  var start = new Date().getTime();
  for (var i = 0; i < calls; ++i) call();
  return new Date().getTime() - start;
}
for (var round = 0; round < rounds; ++round) {
  prefixed += time(function () { edit.QWidget_isVisible(); });
  plain += time(function () { edit.isVisible(); });
}
var each = function (ms) { return (ms * 1000 / (calls * rounds)).toFixed(2); };
app.echo("scripted call: " + each(prefixed) + " us");
app.echo("plain name: " + each(plain) + " us, ratio to the prefixed name " + (plain / prefixed).toFixed(2) +
         " (goal <= 1.5)");
