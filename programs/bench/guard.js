// For robust_bench.sh: a call on a QObject facade, which checks that its
// object still lives, against a call on a value facade, which has nothing to
// check: both a trivial getter of the library, measured in turns.
var edit = app.query("QLineEdit"), rect = app.value("QRect", 0, 0, 10, 10);
var calls = 20000, rounds = 4, guarded = 0, value = 0;
function time(call) {
  var start = new Date().getTime();
  for (var i = 0; i < calls; ++i) call();
  return new Date().getTime() - start;
}
for (var round = 0; round < rounds; ++round) {
  guarded += time(function () { edit.QWidget_isVisible(); });
  value += time(function () { rect.QRect_isEmpty(); });
}
var each = function (ms) { return (ms * 1000 / (calls * rounds)).toFixed(2); };
app.echo("guarded call (QWidget::isVisible on a QObject facade): " + each(guarded) + " us; value facade call " +
         "(QRect::isEmpty, no guard): " + each(value) + " us; ratio " + (guarded / value).toFixed(2));
