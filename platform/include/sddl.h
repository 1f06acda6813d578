// Security identifiers from their text. Only "IU", the interactive users, is understood.
#pragma once

#include <aclapi.h>

BOOL WINAPI ConvertStringSidToSidW(LPCWSTR text, PSID* sid);  // local memory
