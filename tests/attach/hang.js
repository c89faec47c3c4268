// A script that never ends and makes no call any more: no call of it can
// fail, so kwscript gives it up.
app.echo("looping");
for (;;) {
}
