// Makes no call for 15 s: the agent gives it up (its time limit and grace
// are shorter), then it ends by itself.
app.echo("looping");
var end = new Date().getTime() + 15000;
while (new Date().getTime() < end) {
}
