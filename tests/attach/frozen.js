// Says that it runs, then waits in rounds of calls until it is stopped.
app.echo("running");
for (;;) app.waitFor("#nothingNamedSo", 500);
