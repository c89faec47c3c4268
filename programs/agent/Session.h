// A WebDriver session inside the application: the commands a driver sends
// (agentkit/Protocol.md), each carried out on the GUI thread on a fiber of
// its own (so that a click that opens a modal dialog returns while the
// dialog is open), with what the session remembers between them: its
// elements and its current window.
#pragma once

#include <QtCore/QModelIndex>
#include <QtCore/QPersistentModelIndex>
#include <QtCore/QPointer>
#include <QtCore/QString>
#include <QtGui/QWidget>

#include <nlohmann/json.hpp>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "agentkit/Protocol.h"
#include "agentkit/QtText.h"

class QAbstractItemView;

namespace kwagent {

using Json = nlohmann::json;

// WebDriver's key of an element reference in JSON.
constexpr const char* kElementKey = "element-6066-11e4-a52e-4f735466cecf";

// A command's failure: a WebDriver error code ("no such element") and what
// went wrong. Handlers throw it; the session answers it as an error.
struct CommandError {
  std::string code;
  QString message;
};

// Throws CommandError.
[[noreturn]] void Fail(const char* code, const QString& message);

// Texts between JSON (UTF-8) and Qt.
QString TextOf(const Json& value);
Json JsonOf(const QString& text);
using kwagentkit::Utf8;

// The string parameter `key` of a command; `invalid argument` when it is
// missing or not a string.
QString StringParam(const Json& params, const char* key);

// What an element reference stands for: a QObject (a widget mostly), or an
// item of an item view, which is no QObject: its view and its model index.
struct Element {
  QPointer<QObject> object;     // the object; for an item, its view
  QPersistentModelIndex index;  // valid for an item only
  bool item = false;

  QWidget* Widget() const;  // the object as a widget (an item's view), or null
};

// The session's elements by reference. The same object (or item) gets the
// same reference each time it is found; an object the application
// destroyed, or an item its model removed, answers `stale element
// reference` and is never touched.
class ElementTable {
 public:
  Json Reference(QObject* object);
  Json Reference(QAbstractItemView* view, const QModelIndex& index);
  Json Reference(const Element& element);
  // The reference string alone (a window's handle is its reference).
  std::string Id(QObject* object);
  std::string Id(QAbstractItemView* view, const QModelIndex& index);
  // The element that params[key] names (a reference string); `no such
  // element` for a reference never handed out, `stale element reference`
  // for one whose object or item is gone.
  Element Resolve(const Json& params, const char* key = "elementId") const;
  // The same for an element reference object ({kElementKey: ref}) inside a
  // script's arguments or an action's origin.
  Element ResolveReference(const Json& reference) const;
  // The same for a reference string.
  Element ResolveId(const std::string& id) const;

 private:
  std::string NewId();

  std::map<std::string, Element> m_elements;
  std::map<const void*, std::string> m_objectRefs;  // QObject* -> reference
  // An item view's items that have references, by the view's address.
  std::map<const void*, std::vector<std::string>> m_itemRefs;
  int m_next = 0;
};

struct SessionState {
  ElementTable elements;
  QPointer<QWidget> window;  // the current window; null until one is chosen
  bool windowChosen = false; // once one was: its end is then "no such window"
  int maxItems = 1000;       // items listed per item view
  // What a command does about an alert left open: WebDriver's
  // unhandledPromptBehavior.
  std::string promptBehavior = "dismiss and notify";
  // What the script and action commands keep between commands: made by
  // their first use, released with the session, on the GUI thread.
  std::shared_ptr<void> scripts;
  std::shared_ptr<void> input;
};

using CommandHandler = Json (*)(const Json& params, SessionState& session);

class CommandTable {
 public:
  void Add(const char* name, CommandHandler handler) { m_handlers[name] = handler; }
  CommandHandler Find(const std::string& name) const {
    auto found = m_handlers.find(name);
    return found == m_handlers.end() ? nullptr : found->second;
  }

 private:
  std::map<std::string, CommandHandler> m_handlers;
};

// The commands, by group: finding, elements, windows, source and
// screenshots; scripts, alerts and actions.
void AddElementCommands(CommandTable& table);
void AddScriptCommands(CommandTable& table);
// After a script was cut off (FiberRunner::CutOff): its engine stands
// still inside the script's frames, so it and what it holds are kept,
// never used or released; the session's next script starts afresh.
void ForgetCutOffScripts(SessionState& session);

// Before a command that a user could not carry out while an alert is open
// (any but the alert commands, the window handles and switching windows):
// an open alert is dismissed and the command fails with `unexpected alert
// open`, its text in the message, as WebDriver's default prompt handling
// ("dismiss and notify") does.
void MeetOpenAlert(const std::string& command, const SessionState& session);

}  // namespace kwagent
