// Qt's calendar widget example: a day clicked in the calendar, and the
// first day of the week chosen in its combo box by keys.
//   ./scripts/script.sh --launch ../shared/qt48-apps/calendarwidget.exe -- programs/examples/calendarwidget.js
var calendar = app.query("QCalendarWidget");
var days = app.query("QCalendarWidget QCalendarView");
app.clickItem(days, 3, 4);  // a cell in the middle of the month
app.echo("selected:", calendar.selectedDate.toString("yyyy-MM-dd"));
app.doubleClick(app.query("QCalendarWidget #qt_calendar_nextmonth"));
app.echo("two months on, the calendar shows month", calendar.monthShown(), "of", calendar.yearShown());
