#include "agent/Session.h"

namespace kwagent {

void AddElementCommands(CommandTable&) {}

}  // namespace kwagent
