// A script that never ends and makes no call any more: no call of it can
// fail, so the agent cuts it off.
app.echo("looping");
for (;;) {
}
