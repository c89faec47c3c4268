// An uncaught throw of a value that is not an Error reports the value
// (CMake writes one copy per VALUE). Before it: "throw" inside a comment,
// a string and a regular expression, and a throw that is caught.
var re = /throw "x"/, text = 'throw "y"', half = 10 / 2 / 1;
try { throw 7; } catch (e) { app.echo("caught:", e, re.test('throw "x"'), text, half); }
function fail() {
  throw VALUE;
}
fail();
