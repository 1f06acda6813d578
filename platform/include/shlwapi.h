// The shell's light-weight registry helpers and association queries. Like the registry calls they return
// their error and leave the last error alone.
#pragma once

#include <winreg.h>

LSTATUS WINAPI SHGetValueW(HKEY key, LPCWSTR subkey, LPCWSTR name, DWORD* type, void* data, DWORD* size);
LSTATUS WINAPI SHSetValueW(HKEY key, LPCWSTR subkey, LPCWSTR name, DWORD type, LPCVOID data, DWORD size);
LSTATUS WINAPI SHDeleteKeyW(HKEY key, LPCWSTR subkey);

using ASSOCF = DWORD;
enum : ASSOCF {
  ASSOCF_NOTRUNCATE = 0x20,
  ASSOCF_INIT_IGNOREUNKNOWN = 0x400,
};
enum ASSOCSTR {
  ASSOCSTR_EXECUTABLE = 2,
  ASSOCSTR_PROGID = 20,
};
HRESULT WINAPI AssocQueryStringW(ASSOCF flags, ASSOCSTR string, LPCWSTR association, LPCWSTR extra,
                                 LPWSTR out, DWORD* length);
