// Qt's calculator example, driven from outside as a user would: 12 x 7 by
// clicks on the buttons found by their texts (they have no object names),
// then the display, with a picture of the window before and after.
//   ./scripts/script.sh --launch ../shared/qt48-apps/calculator.exe -- programs/examples/calculator.js
function press(text) {
  app.click(app.query('Button[text="' + text + '"]'));
}
var window = app.query("Calculator");
var before = app.grab(window, "calculator_before.png");
press("1");
press("2");
press("\u00d7");
press("7");
press("=");
var display = app.query("Calculator > QLineEdit");
app.echo("12 \u00d7 7 =", display.text);
app.checkEqual(display.text, "84", "12 \u00d7 7");
var after = app.grab(window, "calculator_after.png");
app.echo("pictures:", before, after);
