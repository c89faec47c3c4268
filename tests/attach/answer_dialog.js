// Answers the input dialog a script before this one left open.
app.click(app.query('QInputDialog:visible QPushButton[text="OK"]'));
app.echo("the label reads", app.waitFor('QLabel[text="25%"]', 5000));
