' The same in VBScript: checks by statement and by call, then Err.Raise.
Set ok = app.find("okButton")
app.check Not ok Is Nothing, "the OK button is there"
app.checkEqual ok.text, "OK", "its text"
app.find("nameEdit").text = "Ada"
Call app.checkEqual(app.find("nameEdit").text, "Grace", "the name typed")
app.checkEqual app.find("colorBox").count, "3", "a number is not a string"
app.check app.isNull(ok)
app.checkEqual app.find("okButton"), ok, "one button, two facades"
app.check True, "the last check" : Err.Raise vbObjectError + 1, "report_checks", "the script gives up here"
