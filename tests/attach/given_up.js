// Makes no call for 15 s, in a loop that reads the clock: the agent cuts
// it off once its time limit and a second have passed.
app.echo("looping");
var end = new Date().getTime() + 15000;
while (new Date().getTime() < end) {
}
