// The command groups AddScriptCommands registers besides the scripts':
// alerts (the application's modal message boxes and input dialogs) and
// actions (WebDriver's input sequences as Qt events).
#pragma once

#include "agent/Session.h"

namespace kwagent {

void AddAlertCommands(CommandTable& table);
void AddActionCommands(CommandTable& table);

}  // namespace kwagent
