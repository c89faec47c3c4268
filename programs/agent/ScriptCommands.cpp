#include "agent/Session.h"

namespace kwagent {

void AddScriptCommands(CommandTable&) {}

}  // namespace kwagent
