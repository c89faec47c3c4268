// Holds the application for a few seconds, then says it is done.
app.waitFor("#nothingNamedSo", 4000);
app.echo("slow script done");
