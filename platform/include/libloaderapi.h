// Modules and the resources in them. A loaded module is only looked at: none of its code ever runs, and the
// null module, which stands for the program itself, is not supported.
#pragma once

#include <windef.h>
#include <winerror.h>

#define LOAD_LIBRARY_AS_DATAFILE 0x00000002u

#define RT_ICON MAKEINTRESOURCE(3)
#define RT_RCDATA MAKEINTRESOURCE(10)
#define RT_GROUP_ICON MAKEINTRESOURCE(14)
#define RT_VERSION MAKEINTRESOURCE(16)

// The file stays in use, not to be written or deleted, until FreeLibrary. Without LOAD_LIBRARY_AS_DATAFILE it
// must be a PE32+ image, as in a 64-bit process. Nothing is appended to `name`, and only the path is
// searched.
HMODULE WINAPI LoadLibraryW(LPCWSTR name);
HMODULE WINAPI LoadLibraryExW(LPCWSTR name, HANDLE file, DWORD flags);
BOOL WINAPI FreeLibrary(HMODULE module);

// Names are numbers, or text without regard to case. Where a neutral
// language is not there any other stands in.
HRSRC WINAPI FindResourceExW(HMODULE module, LPCWSTR type, LPCWSTR name, WORD language);
DWORD WINAPI SizeofResource(HMODULE module, HRSRC resource);
HGLOBAL WINAPI LoadResource(HMODULE module, HRSRC resource);
LPVOID WINAPI LockResource(HGLOBAL resource);  // valid until the module is freed

using ENUMRESTYPEPROCW = BOOL(CALLBACK*)(HMODULE module, LPWSTR type, LONG_PTR param);
using ENUMRESNAMEPROCW = BOOL(CALLBACK*)(HMODULE module, LPCWSTR type, LPWSTR name, LONG_PTR param);
using ENUMRESLANGPROCW = BOOL(CALLBACK*)(HMODULE module, LPCWSTR type, LPCWSTR name, WORD language,
                                         LONG_PTR param);
BOOL WINAPI EnumResourceTypesW(HMODULE module, ENUMRESTYPEPROCW visit, LONG_PTR param);
BOOL WINAPI EnumResourceNamesW(HMODULE module, LPCWSTR type, ENUMRESNAMEPROCW visit, LONG_PTR param);
BOOL WINAPI EnumResourceLanguagesW(HMODULE module, LPCWSTR type, LPCWSTR name, ENUMRESLANGPROCW visit,
                                   LONG_PTR param);

// The file changes when the update ends without `discard`, as a whole or not at all; the handle is gone
// either way. Null data of size 0 deletes the resource; other data of size 0 is refused.
HANDLE WINAPI BeginUpdateResourceW(LPCWSTR file, BOOL deleteExisting);
BOOL WINAPI UpdateResourceW(HANDLE update, LPCWSTR type, LPCWSTR name, WORD language, LPVOID data,
                            DWORD size);
BOOL WINAPI EndUpdateResourceW(HANDLE update, BOOL discard);
