// kwscript --members TYPE [--json]: what a script can call on an object of
// TYPE. For each class the object composes, its members under the library's
// prefixed names with their arguments and result in script terms and the Qt
// declaration; then the plain names with the overloads each stands for
// (most derived class first, as a call resolves them); then the Qt
// properties with their types and whether they can be written.
#pragma once

#include <QtCore/QString>

#include "com/Interfaces.h"

namespace kwscript {

// Prints the list (or one JSON document) on standard output; 0, or 1 for a
// type name the library does not know (said on standard error).
int ListMembers(IWrappersManager* manager, const QString& type, bool json);

}  // namespace kwscript
