// Checks that pass and fail on the demo form, then an error of the script's
// own: every failure is reported with its line, and the run goes on to the end.
var ok = app.find("okButton"), edit = app.find("nameEdit");
app.check(ok !== null, "the OK button is there");
app.checkEqual(ok.text, "OK", "its text");
edit.text = "Ada";
app.checkEqual(edit.text, "Grace", "the name typed");
app.checkEqual(app.find("colorBox").count, "3", "a number is not a string");
app.check(app.find("noSuchWidget"));
app.checkEqual(app.find("okButton"), ok, "one button, two facades");
app.check(true, "the last check"); throw new Error("the script gives up here");
