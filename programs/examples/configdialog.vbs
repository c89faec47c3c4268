' Qt's config dialog example: a click on an icon of the list shows its page.
'   ./scripts/script.sh --launch ../shared/qt48-apps/configdialog.exe -- programs/examples/configdialog.vbs
Set pages = app.query("ConfigDialog QStackedWidget")
app.echo "page before:", pages.currentIndex
app.clickItem app.query("ConfigDialog QListWidget"), 1, 0
app.echo "page after a click on the second icon:", pages.currentIndex
app.echo "it shows:", app.query("ConfigDialog QStackedWidget QGroupBox:visible").title
