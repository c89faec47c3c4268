// Never ends by itself; every round makes a call, so a time limit stops it.
for (;;) app.query("QPushButton");
