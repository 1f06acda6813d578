// Registry calls. They return their error and leave the last error alone; predefined keys are constants, not
// handles, and need no closing.
#pragma once

#include <windef.h>
#include <winerror.h>
#include <winnt.h>

#define HKEY_CLASSES_ROOT (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000000u))))
#define HKEY_CURRENT_USER (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000001u))))
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000002u))))

#define KEY_QUERY_VALUE 0x0001u
#define KEY_SET_VALUE 0x0002u
#define KEY_ENUMERATE_SUB_KEYS 0x0008u
#define KEY_WOW64_64KEY 0x0100u
#define KEY_WOW64_32KEY 0x0200u
#define KEY_READ 0x20019u
#define KEY_WRITE 0x20006u
#define KEY_ALL_ACCESS 0xF003Fu

#define REG_NONE 0u
#define REG_SZ 1u
#define REG_EXPAND_SZ 2u
#define REG_BINARY 3u
#define REG_DWORD 4u
#define REG_MULTI_SZ 7u

#define REG_OPTION_NON_VOLATILE 0u

using REGSAM = DWORD;

LSTATUS WINAPI RegOpenCurrentUser(REGSAM access, HKEY* result);
LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR subkey, DWORD options, REGSAM access, HKEY* result);
LSTATUS WINAPI RegCreateKeyExW(HKEY key, LPCWSTR subkey, DWORD reserved, LPWSTR className, DWORD options,
                               REGSAM access, LPSECURITY_ATTRIBUTES security, HKEY* result,
                               LPDWORD disposition);
LSTATUS WINAPI RegCloseKey(HKEY key);
LSTATUS WINAPI RegDeleteKeyW(HKEY key, LPCWSTR subkey);
LSTATUS WINAPI RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength, LPDWORD reserved,
                             LPWSTR className, LPDWORD classLength, FILETIME* lastWrite);
LSTATUS WINAPI RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                                LPDWORD size);
LSTATUS WINAPI RegQueryValueW(HKEY key, LPCWSTR subkey, LPWSTR data, LONG* size);
LSTATUS WINAPI RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data,
                              DWORD size);
LSTATUS WINAPI RegDeleteValueW(HKEY key, LPCWSTR name);
LSTATUS WINAPI RegEnumValueW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength, LPDWORD reserved,
                             LPDWORD type, LPBYTE data, LPDWORD size);
