#include "agent/Actions.h"

#include <QtCore/QElapsedTimer>
#include <QtGui/QAbstractItemView>
#include <QtGui/QApplication>
#include <QtGui/QDesktopWidget>

#include <algorithm>
#include <cmath>
#include <set>

#include "agent/ScriptCommands.h"
#include "automation/EventPump.h"
#include "automation/InputEvents.h"
#include "automation/W3CKeys.h"

namespace kwagent {

namespace {

// ---- Reading a sequence

const struct {
  const char* name;
  SourceType type;
} kSourceTypes[] = {{"none", SourceType::kNone},
                    {"key", SourceType::kKey},
                    {"pointer", SourceType::kPointer},
                    {"wheel", SourceType::kWheel}};

// Which actions each type of source takes.
const struct {
  const char* name;
  Action::Kind kind;
  SourceType source;
} kActionKinds[] = {
    {"keyDown", Action::kKeyDown, SourceType::kKey},
    {"keyUp", Action::kKeyUp, SourceType::kKey},
    {"pointerDown", Action::kPointerDown, SourceType::kPointer},
    {"pointerUp", Action::kPointerUp, SourceType::kPointer},
    {"pointerMove", Action::kPointerMove, SourceType::kPointer},
    {"pointerCancel", Action::kPointerCancel, SourceType::kPointer},
    {"scroll", Action::kScroll, SourceType::kWheel},
};

[[noreturn]] void Invalid(const QString& message) { Fail("invalid argument", message); }

QString Quoted(const std::string& text) { return "\"" + QString::fromUtf8(text.c_str()) + "\""; }

// A whole number of the member `key` of an action; `fallback` when it is
// absent and may be; at least `minimum`.
int WholeMember(const Json& action, const char* key, const QString& where, bool required, int fallback, int minimum) {
  auto found = action.find(key);
  if (found == action.end() || (!required && found->is_null())) {
    if (required) Invalid(QString("%1 needs \"%2\"").arg(where, key));
    return fallback;
  }
  const double number = found->is_number() ? found->get<double>() : NAN;
  if (!found->is_number() || number != std::floor(number) || std::fabs(number) > 2147483647.0)
    Invalid(QString("%1: \"%2\" must be a whole number").arg(where, key));
  if (number < minimum) Invalid(QString("%1: \"%2\" must be at least %3").arg(where, key).arg(minimum));
  return static_cast<int>(number);
}

double NumberMember(const Json& action, const char* key, const QString& where) {
  auto found = action.find(key);
  if (found == action.end() || found->is_null()) return 0;
  if (!found->is_number()) Invalid(QString("%1: \"%2\" must be a number").arg(where, key));
  return found->get<double>();
}

// An origin: "viewport", "pointer" (when the source may take it) or an
// element reference.
Json OriginMember(const Json& action, const QString& where, bool pointerAllowed) {
  auto found = action.find("origin");
  if (found == action.end() || found->is_null()) return "viewport";
  if (found->is_string() && (*found == "viewport" || (pointerAllowed && *found == "pointer"))) return *found;
  if (found->is_object() && found->contains(kElementKey) && (*found)[kElementKey].is_string()) return *found;
  Invalid(QString("%1: \"origin\" must be \"viewport\"%2 or an element reference")
              .arg(where, pointerAllowed ? ", \"pointer\"" : ""));
}

// The key of a keyDown or keyUp: a single character (one code point).
QString KeyValue(const Json& action, const QString& where) {
  auto found = action.find("value");
  if (found == action.end() || !found->is_string()) Invalid(where + ": \"value\" must be a string of one key");
  const QString value = TextOf(*found);
  const bool single = value.size() == 1 || (value.size() == 2 && value[0].isHighSurrogate() && value[1].isLowSurrogate());
  if (!single) Invalid(QString("%1: \"value\" must be one key, not \"%2\"").arg(where, value));
  return value;
}

Action ParseAction(const Json& item, SourceType source, const QString& where) {
  if (!item.is_object()) Invalid(where + " must be an object");
  auto type = item.find("type");
  if (type == item.end() || !type->is_string()) Invalid(where + " needs a \"type\"");
  Action action;
  const std::string name = type->get<std::string>();
  if (name == "pause") {
    action.kind = Action::kPause;
    action.duration = WholeMember(item, "duration", where, false, -1, 0);
    return action;
  }
  bool known = false;
  for (const auto& kind : kActionKinds)
    if (name == kind.name && kind.source == source) {
      action.kind = kind.kind;
      known = true;
    }
  if (!known) Invalid(QString("%1: a source of this type has no action %2").arg(where, Quoted(name)));
  switch (action.kind) {
    case Action::kKeyDown:
    case Action::kKeyUp:
      action.value = KeyValue(item, where);
      break;
    case Action::kPointerDown:
    case Action::kPointerUp:
      action.button = WholeMember(item, "button", where, true, 0, 0);
      break;
    case Action::kPointerMove:
      action.duration = WholeMember(item, "duration", where, false, -1, 0);
      action.origin = OriginMember(item, where, true);
      action.x = NumberMember(item, "x", where);
      action.y = NumberMember(item, "y", where);
      break;
    case Action::kScroll:
      action.duration = WholeMember(item, "duration", where, false, -1, 0);
      action.origin = OriginMember(item, where, false);
      action.x = WholeMember(item, "x", where, true, 0, INT32_MIN);
      action.y = WholeMember(item, "y", where, true, 0, INT32_MIN);
      action.deltaX = WholeMember(item, "deltaX", where, true, 0, INT32_MIN);
      action.deltaY = WholeMember(item, "deltaY", where, true, 0, INT32_MIN);
      break;
    default:
      break;
  }
  return action;
}

}  // namespace

std::vector<SourceActions> ParseActions(const Json& params, const KnownSources& known, KnownSources* met) {
  auto actions = params.find("actions");
  if (actions == params.end() || !actions->is_array()) Invalid("\"actions\" must be an array of input sources");
  std::vector<SourceActions> sources;
  std::set<std::string> ids;
  for (const Json& source : *actions) {
    const QString where = QString("input source %1").arg(sources.size());
    if (!source.is_object()) Invalid(where + " must be an object");
    auto id = source.find("id");
    if (id == source.end() || !id->is_string()) Invalid(where + " needs a string \"id\"");
    auto type = source.find("type");
    SourceActions parsed;
    parsed.id = id->get<std::string>();
    bool typed = false;
    if (type != source.end() && type->is_string())
      for (const auto& known_type : kSourceTypes)
        if (*type == known_type.name) {
          parsed.type = known_type.type;
          typed = true;
        }
    if (!typed) Invalid(QString("%1 (%2): \"type\" must be \"key\", \"pointer\", \"wheel\" or \"none\"").arg(where, Quoted(parsed.id)));
    if (!ids.insert(parsed.id).second) Invalid(QString("the input source %1 appears twice").arg(Quoted(parsed.id)));
    std::string pointerType;
    if (parsed.type == SourceType::kPointer) {
      pointerType = "mouse";
      auto parameters = source.find("parameters");
      if (parameters != source.end() && !parameters->is_null()) {
        if (!parameters->is_object()) Invalid(where + ": \"parameters\" must be an object");
        auto kind = parameters->find("pointerType");
        if (kind != parameters->end()) {
          if (!kind->is_string() || (*kind != "mouse" && *kind != "pen" && *kind != "touch"))
            Invalid(where + ": \"pointerType\" must be \"mouse\", \"pen\" or \"touch\"");
          pointerType = kind->get<std::string>();
        }
      }
    }
    auto before = known.find(parsed.id);
    if (before != known.end() && (before->second.type != parsed.type || before->second.pointerType != pointerType))
      Invalid(QString("the input source %1 is of another type in this session").arg(Quoted(parsed.id)));
    auto list = source.find("actions");
    if (list == source.end() || !list->is_array()) Invalid(where + ": \"actions\" must be an array");
    for (const Json& item : *list)
      parsed.actions.push_back(
          ParseAction(item, parsed.type, QString("%1 (%2), action %3").arg(where, Quoted(parsed.id)).arg(parsed.actions.size())));
    (*met)[parsed.id] = KnownSource{parsed.type, pointerType};
    sources.push_back(std::move(parsed));
  }
  return sources;
}

namespace {

// ---- Carrying a sequence out

// A key held down by a key source.
struct HeldKey {
  int key = 0;
  Qt::KeyboardModifier modifier = Qt::NoModifier;  // for a modifier key
  Qt::KeyboardModifiers keypad = Qt::NoModifier;
  QString text;
};

// The key a key action's value names: one of WebDriver's codes, or a
// character typed as a "send keys" text types it; false for Null.
bool KeyOf(const QString& value, HeldKey* held) {
  kwauto::W3CKey code;
  if (value.size() == 1 && kwauto::LookUpW3CKey(value[0], &code)) {
    held->key = code.key;
    held->modifier = code.modifier;
    held->keypad = code.keypad;
    held->text = code.text;
    return code.key != 0;
  }
  const QList<kwauto::KeyStroke> strokes = kwauto::W3CKeyStrokes(value);
  held->key = strokes.isEmpty() ? static_cast<int>(Qt::Key_unknown) : strokes[0].key;
  held->text = value;
  return true;
}

// The text a key types with `modifiers` held: none with Ctrl, Alt or Meta,
// a letter in upper case with Shift.
QString TypedText(const HeldKey& key, Qt::KeyboardModifiers modifiers) {
  if (modifiers & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier)) return QString();
  return modifiers & Qt::ShiftModifier ? key.text.toUpper() : key.text;
}

// What a session's sources hold between commands.
struct InputState {
  KnownSources sources;
  std::map<std::string, std::vector<HeldKey>> keysDown;  // by source, in the order pressed
  std::map<std::string, kwauto::Pointer> pointers;
  kwauto::Pointer wheel;

  Qt::KeyboardModifiers Modifiers() const {
    Qt::KeyboardModifiers held = Qt::NoModifier;
    for (const auto& source : keysDown)
      for (const HeldKey& key : source.second) held |= key.modifier;
    return held;
  }
};

InputState& InputOf(SessionState& session) {
  if (!session.input) session.input = std::make_shared<InputState>();
  return *static_cast<InputState*>(session.input.get());
}

void Check(const QString& why) {
  if (!why.isEmpty()) Fail("unknown error", why);
}

Qt::MouseButton ButtonOf(int button) {
  static const Qt::MouseButton kButtons[] = {Qt::LeftButton, Qt::MiddleButton, Qt::RightButton, Qt::XButton1,
                                             Qt::XButton2};
  if (button < 0 || button >= 5) Fail("unsupported operation", QString("a mouse has no button %1").arg(button));
  return kButtons[button];
}

// The widget the viewport is: the session's window, else the active one.
QWidget* Viewport(const SessionState& session) {
  if (session.window != nullptr) return session.window;
  if (QWidget* active = QApplication::activeWindow()) return active;
  foreach (QWidget* widget, QApplication::topLevelWidgets())
    if (widget->isVisible()) return widget;
  Fail("no such window", "the application shows no window");
}

// Where on the screen an action's origin and offsets lead.
QPoint Target(const Action& action, const SessionState& session, const QPoint& pointer) {
  const QPoint offset(static_cast<int>(std::floor(action.x)), static_cast<int>(std::floor(action.y)));
  QPoint at;
  if (action.origin == "pointer") {
    at = pointer + offset;
  } else if (action.origin == "viewport") {
    at = Viewport(session)->mapToGlobal(QPoint(0, 0)) + offset;
  } else {
    const Element element = session.elements.ResolveReference(action.origin);
    QWidget* widget = element.Widget();
    if (widget == nullptr) Fail("no such element", "the origin is no widget");
    if (!widget->isVisible()) Fail("element not interactable", "the origin's widget is not shown");
    if (element.item) {
      auto* view = static_cast<QAbstractItemView*>(widget);
      view->scrollTo(element.index);
      at = view->viewport()->mapToGlobal(view->visualRect(element.index).center()) + offset;
    } else {
      at = widget->mapToGlobal(widget->rect().center()) + offset;
    }
  }
  if (!QApplication::desktop()->geometry().contains(at))
    Fail("move target out of bounds", QString("(%1, %2) lies outside the screen").arg(at.x()).arg(at.y()));
  return at;
}

// Lets the application run until `ms` have passed since `clock` started.
void WaitUntil(const QElapsedTimer& clock, qint64 ms) {
  while (clock.elapsed() < ms)
    if (!kwauto::YieldToEventLoop()) {
      QString why;
      kwauto::StopRequested(&why);
      Fail("unknown error", why);
    }
}

void Key(InputState& input, SessionState& session, const std::string& source, const Action& action) {
  HeldKey code;
  if (!KeyOf(action.value, &code)) return;  // Null presses nothing
  std::vector<HeldKey>& down = input.keysDown[source];
  auto same = std::find_if(down.begin(), down.end(), [&code](const HeldKey& held) {
    return held.key == code.key && held.text == code.text;
  });
  if (action.kind == Action::kKeyDown) {
    if (same == down.end()) down.push_back(code);
  } else {
    if (same == down.end()) return;  // not held: nothing to let go of
    down.erase(same);
  }
  const Qt::KeyboardModifiers modifiers = input.Modifiers() | (action.kind == Action::kKeyUp ? code.modifier : Qt::NoModifier);
  // With no window active, the keys go where they would once the
  // viewport's window is: to its focus widget.
  QWidget* viewport = Viewport(session);
  QWidget* fallback = viewport->focusWidget() != nullptr ? viewport->focusWidget() : viewport;
  Check(kwauto::SendKeyEvent(action.kind == Action::kKeyDown, code.key, modifiers | code.keypad,
                             TypedText(code, modifiers), fallback));
}

// A move over `duration` ms in steps of about 20 ms, the last at the target.
void Move(kwauto::Pointer& pointer, const QPoint& to, int duration, Qt::KeyboardModifiers modifiers) {
  const QPoint from = pointer.position();
  const int steps = duration > 0 ? qMax(1, duration / 20) : 1;
  QElapsedTimer clock;
  clock.start();
  for (int step = 1; step <= steps; ++step) {
    if (step < steps) WaitUntil(clock, static_cast<qint64>(duration) * (step - 1) / steps);
    Check(pointer.Move(from + (to - from) * step / steps, modifiers));
  }
}

void Perform(InputState& input, SessionState& session, const std::vector<SourceActions>& sources) {
  std::size_t ticks = 0;
  for (const SourceActions& source : sources) ticks = std::max(ticks, source.actions.size());
  for (std::size_t tick = 0; tick < ticks; ++tick) {
    QElapsedTimer clock;
    clock.start();
    int duration = 0;
    for (const SourceActions& source : sources) {
      if (tick >= source.actions.size()) continue;
      const Action& action = source.actions[tick];
      duration = std::max(duration, action.duration);
      const Qt::KeyboardModifiers modifiers = input.Modifiers();
      switch (action.kind) {
        case Action::kPause:
        case Action::kPointerCancel:
          break;
        case Action::kKeyDown:
        case Action::kKeyUp:
          Key(input, session, source.id, action);
          break;
        case Action::kPointerDown:
          Check(input.pointers[source.id].Press(ButtonOf(action.button), modifiers));
          break;
        case Action::kPointerUp:
          Check(input.pointers[source.id].Release(ButtonOf(action.button), modifiers));
          break;
        case Action::kPointerMove: {
          kwauto::Pointer& pointer = input.pointers[source.id];
          Move(pointer, Target(action, session, pointer.position()), action.duration, modifiers);
          break;
        }
        case Action::kScroll:
          Check(input.wheel.Scroll(Target(action, session, QPoint()), action.deltaX, action.deltaY, modifiers));
          break;
      }
    }
    WaitUntil(clock, duration);
  }
}

Json PerformActions(const Json& params, SessionState& session) {
  InputState& input = InputOf(session);
  KnownSources met = input.sources;
  const std::vector<SourceActions> sources = ParseActions(params, input.sources, &met);
  input.sources = met;
  Perform(input, session, sources);
  return nullptr;
}

// Lets go of every key and button held, the last pressed first, and
// forgets the sources.
Json ReleaseActions(const Json&, SessionState& session) {
  InputState& input = InputOf(session);
  for (auto& source : input.keysDown)
    while (!source.second.empty()) {
      const HeldKey key = source.second.back();
      source.second.pop_back();
      const Qt::KeyboardModifiers modifiers = input.Modifiers() | key.modifier;
      Check(kwauto::SendKeyEvent(false, key.key, modifiers | key.keypad, TypedText(key, modifiers)));
    }
  for (auto& pointer : input.pointers)
    for (Qt::MouseButton button : {Qt::XButton2, Qt::XButton1, Qt::RightButton, Qt::MiddleButton, Qt::LeftButton})
      if (pointer.second.buttons() & button) Check(pointer.second.Release(button, input.Modifiers()));
  session.input.reset();
  return nullptr;
}

}  // namespace

void AddActionCommands(CommandTable& table) {
  table.Add("performActions", &PerformActions);
  table.Add("releaseActions", &ReleaseActions);
}

}  // namespace kwagent
