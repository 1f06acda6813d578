// Security identifiers from their text. Only the two-letter names that the layer knows are understood.
#pragma once

#include <aclapi.h>

BOOL WINAPI ConvertStringSidToSidW(LPCWSTR text, PSID* sid);  // local memory
