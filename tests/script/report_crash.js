// A check, then a click that crashes kwcrashapp: the check and the crash
// still reach the summary and the JUnit file.
var button = app.query('QPushButton[text="Crash"]');
app.checkEqual(button.text, "Crash", "the flawed button");
app.click(button);
