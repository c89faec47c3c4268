// Makes no call for 15 s, in a loop that reads the clock now and then: the
// agent cuts it off once its time limit and a second have passed. (A loop
// that reads the clock on every turn runs mostly in the system's calls,
// where the cut-off catches it only by chance.)
app.echo("looping");
var end = new Date().getTime() + 15000, turns = 0;
while (++turns % 1000 != 0 || new Date().getTime() < end) {
}
