// Qt's calendar widget example: days clicked in the calendar, and the month
// changed by a double click on its next-month button.
//   ./scripts/script.sh --launch ../shared/qt48-apps/calendarwidget.exe -- programs/examples/calendarwidget.js
var calendar = app.query("QCalendarWidget");
var days = app.query("QCalendarWidget QCalendarView");
app.clickItem(days, 3, 4);  // a cell in the middle of the month
var first = calendar.selectedDate;
app.clickItem(days, 3, 5);  // the cell to its right
var second = calendar.selectedDate;
app.echo("days between two cells side by side:", first.daysTo(second));
app.echo("selected:", second.toString("yyyy-MM-dd"));
app.doubleClick(app.query("QCalendarWidget #qt_calendar_nextmonth"));
app.echo("two months on, the calendar shows month", calendar.monthShown(), "of", calendar.yearShown());
