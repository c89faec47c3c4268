// The cost of one scripted call, for ./scripts/bench.sh: the same call on
// the first line edit of whatever application the script runs in (the
// calculator's display, or the name field of kwscript's own form), under
// its prefixed name and its plain name, measured in turns; then a call with
// its default left out against the same call spelled in full, and a member
// of a base the facade adds (QObject) against one of the library's
// composition list (QWidget).
var edit = app.query("QLineEdit");
app.echo("first call answered");
var calls = 10000, rounds = 4, prefixed = 0, plain = 0, defaulted = 0, spelled = 0, added = 0, listed = 0;
var rect = edit.rect();
function time(call) {
  var start = new Date().getTime();
  for (var i = 0; i < calls; ++i) call();
  return new Date().getTime() - start;
}
for (var round = 0; round < rounds; ++round) {
  prefixed += time(function () { edit.QWidget_isVisible(); });
  plain += time(function () { edit.isVisible(); });
  defaulted += time(function () { rect.QRect_contains_2(rect); });
  spelled += time(function () { rect.QRect_contains_2(rect, false); });
  added += time(function () { edit.QObject_signalsBlocked(); });
  listed += time(function () { edit.QWidget_isVisible(); });
}
var each = function (ms) { return (ms * 1000 / (calls * rounds)).toFixed(2); };
app.echo("scripted call: " + each(prefixed) + " us");
app.echo("plain name: " + each(plain) + " us, ratio to the prefixed name " + (plain / prefixed).toFixed(2) +
         " (goal <= 1.5)");
app.echo("default left out: " + each(defaulted) + " us, ratio to the call spelled in full " +
         (defaulted / spelled).toFixed(2) + " (goal <= 1.2)");
app.echo("added base member: " + each(added) + " us, ratio to a member of the library's list " +
         (added / listed).toFixed(2) + " (goal <= 1.2)");
