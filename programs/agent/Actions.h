// WebDriver's actions (performActions, releaseActions): input sources of
// type key, pointer (a mouse), wheel and none, each with a list of actions;
// the actions at one index of every list make a tick, carried out in
// order. A sequence is checked whole before any of it happens; the sources
// and what they hold down (keys, buttons) stay with the session until
// releaseActions lets go of them.
#pragma once

#include <QtCore/QChar>
#include <QtCore/QString>

#include <map>
#include <string>
#include <vector>

#include "agent/Session.h"

namespace kwagent {

enum class SourceType { kNone, kKey, kPointer, kWheel };

struct Action {
  enum Kind { kPause, kKeyDown, kKeyUp, kPointerDown, kPointerUp, kPointerMove, kPointerCancel, kScroll };
  Kind kind = kPause;
  int duration = -1;  // milliseconds; -1 when none was given
  QString value;      // a key: one character (a surrogate pair for one beyond U+FFFF)
  int button = 0;     // 0 left, 1 middle, 2 right, 3 and 4 the side buttons
  Json origin = "viewport";  // "viewport", "pointer" or an element reference
  double x = 0, y = 0;
  int deltaX = 0, deltaY = 0;
};

struct SourceActions {
  std::string id;
  SourceType type = SourceType::kNone;
  std::vector<Action> actions;
};

// A source the session has met: its type and, for a pointer, its kind.
struct KnownSource {
  SourceType type;
  std::string pointerType;
};
using KnownSources = std::map<std::string, KnownSource>;

// performActions' parameters as sources and their actions; `invalid
// argument` for anything that is not a valid sequence, or a source whose
// id the session knows as another type (or another kind of pointer).
std::vector<SourceActions> ParseActions(const Json& params, const KnownSources& known, KnownSources* met);

}  // namespace kwagent
