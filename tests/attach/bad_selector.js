// A selector whose value lacks its quotes.
app.query('Button[text=7]');
