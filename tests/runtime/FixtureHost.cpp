// The fixture's IIDs, defined once for the runtime tests.
#include <windows.h>
#include <oaidl.h>
#include <initguid.h>

#include "FixtureHost.h"
