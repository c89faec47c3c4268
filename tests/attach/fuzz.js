
// Random calls on the widgets of Qt's line edits example, for fuzz.sh,
// which puts before this: `members` (what kwscript --members TYPE --json
// says of each class), `excluded` (names left out), `seed`, `calls` and
// `trace` (each call printed before it is made).
// Arguments are plain values, objects found in the application, objects of
// other classes and values the script destroyed; every call either works
// or is refused with a message. Prints the counts, and each refusal that
// has no message.
var state = seed % 2147483647 || 1;
function random(n) {  // Park and Miller's generator: the same calls for the same seed
  state = (state * 16807) % 2147483647;
  return Math.floor((state / 2147483647) * n);
}
function pick(list) { return list[random(list.length)]; }

var plain = [0, 1, -1, 2, 7, 100, 65535, 2147483647, -2147483648, 4294967296, 1e300, -1e300, 0.5, -0.25,
             NaN, Infinity, "", "x", "Hello, world", new Array(5001).join("long "), "a\u0000b", "AlignRight",
             "Qt::red", "&File", true, false, null, undefined];
var found = [];
var widgets = app.queryAll("QWidget");
for (var i = 0; i < widgets.length; ++i) found.push(widgets.item(i));
var otherClass = [app.value("QRect", 0, 0, 10, 10), app.value("QSize", 3, 4), app.value("QColor", "red"),
                  app.value("QPoint", 1, 2), app.str("a QString"), app.queryAll("QLabel"), {}, function () {}];
var destroyed = [];
for (var i = 0; i < 3; ++i) {
  var value = app.str("destroyed " + i);
  value.QString_DTOR_QString();
  destroyed.push(value);
}
function argument() {
  switch (random(6)) {
    case 0: return pick(found);
    case 1: return pick(otherClass);
    case 2: return pick(destroyed);
    default: return pick(plain);
  }
}
function describe(object, args) {
  var parts = [];
  for (var i = 0; i < args.length; ++i)
    parts.push(typeof args[i] == "string" && args[i].length > 20 ? "a string of " + args[i].length : "" + args[i]);
  return " on " + object + " (" + parts.join(", ") + ")";
}
function call(object, name, args) {
  switch (args.length) {
    case 0: return object[name]();
    case 1: return object[name](args[0]);
    case 2: return object[name](args[0], args[1]);
    case 3: return object[name](args[0], args[1], args[2]);
    case 4: return object[name](args[0], args[1], args[2], args[3]);
    default: return object[name](args[0], args[1], args[2], args[3], args[4]);
  }
}

// The objects of each class and the names each answers.
var classes = [];
for (var type in members) {
  var objects = app.queryAll(type), names = [], properties = [];
  for (var i = 0; i < members[type].plain.length; ++i)
    if (!excluded[members[type].plain[i].name]) names.push(members[type].plain[i]);
  for (var i = 0; i < members[type].properties.length; ++i)
    if (members[type].properties[i].writable) properties.push(members[type].properties[i].name);
  var list = [];
  for (var i = 0; i < objects.length; ++i) list.push(objects.item(i));
  if (list.length == 0) throw new Error("no " + type + " in the application");
  classes.push({type: type, objects: list, names: names, properties: properties});
}

var made = 0, refused = 0, silent = 0;
for (var n = 0; n < calls; ++n) {
  var c = pick(classes), object = pick(c.objects), what, args = [];
  try {
    if (random(8) == 0) {  // a property written
      var property = pick(c.properties);
      what = c.type + "." + property + " =";
      args.push(argument());
      if (trace) app.echo("call " + n + ": " + what + (trace > 1 ? describe(object, args) : ""));
      object[property] = args[0];
    } else {
      var member = pick(c.names), overload = pick(member.overloads);
      var count = overload.arguments == "" ? 0 : overload.arguments.split(", ").length;
      if (random(4) == 0) count = random(4);  // sometimes a count that fits no overload
      for (var i = 0; i < count; ++i) args.push(argument());
      what = c.type + "." + member.name;
      if (trace) app.echo("call " + n + ": " + what + (trace > 1 ? describe(object, args) : ""));
      call(object, member.name, args);
    }
    ++made;
  } catch (e) {
    ++refused;
    if (!e.message) {
      ++silent;
      app.echo("refused without a message: " + what + " with " + args.length + " argument(s), error " + e.number);
    }
  }
}
app.echo("fuzz: " + calls + " calls, " + made + " made, " + refused + " refused, " + silent +
         " refused without a message; the application answers: " + (app.query("QLineEdit") != null));
