// Wine is known by a name that only its own system library exports.
#include "support/gaps.h"

#ifdef _WIN32
#include <windows.h>

bool Lacks(Gap) {
  return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}
#else
bool Lacks(Gap) {
  return false;
}
#endif
