// Qt's line edits example: an integer validator and an input mask at work
// while a user types.
//   ./scripts/script.sh --launch ../shared/qt48-apps/lineedits.exe -- programs/examples/lineedits.js
var validator = 'QGroupBox[title="Validator"] ';
app.key(app.query(validator + "QComboBox"), "Down");  // "Integer validator"
var number = app.query(validator + "QLineEdit");
app.type(number, "12ab3");
app.echo("the integer validator kept:", number.text);
app.key(number, "Home");
app.type(number, "-");
app.echo("after Home and a minus:", number.text);

var mask = 'QGroupBox[title="Input mask"] ';
app.key(app.query(mask + "QComboBox"), "Down");  // "Phone number"
var phone = app.query(mask + "QLineEdit");
app.type(phone, "+44 20 7946 0000");
app.echo("the phone mask shows:", phone.text);
