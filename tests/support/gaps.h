// What Wine is known to do otherwise than Windows, each difference stated once. The test that goes by one
// fails when it closes.
#pragma once

#include <windows.h>

enum class Gap {
  LinkProperties,  // a shell link's property store takes values, but does not give them back
  ExpandedText,    // SHGetValueW expands a REG_EXPAND_SZ and reports it as REG_SZ
  LoadedUpdate,    // a resource update of a loaded program fails when it begins, not when it is committed
};

// False on every platform but Wine, which is known by a name that only its own system library exports.
inline bool Lacks(Gap) {
#ifdef _WIN32
  return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
#else
  return false;
#endif
}
