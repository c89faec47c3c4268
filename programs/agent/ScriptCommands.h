// The command groups AddScriptCommands registers besides the scripts':
// alerts (the application's modal message boxes and input dialogs) and
// actions (WebDriver's input sequences as Qt events); and where the
// scripts' library lies.
#pragma once

#include <string>

#include "agent/Session.h"

namespace kwagent {

// The folder of the module the agent's code is in (kwagent.dll inside an
// application), where kwQtWrappers.dll lies beside it.
std::wstring AgentFolder();

void AddAlertCommands(CommandTable& table);
void AddActionCommands(CommandTable& table);

}  // namespace kwagent
