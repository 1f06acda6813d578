// Access to the registry: opened keys, text values and deletions, each with the failure that its comment
// names (xdt::exc_tag). Paths are relative to the key given; nothing stays open behind an operation.
#pragma once

#include <windows.h>

#include <optional>

#include "common/handles.h"
#include "common/text.h"

// A key's unnamed value.
inline const WideString defaultValue;

// The current user's hive, for reading and writing. Raises "RegOpenCurrentUser() failed".
Key OpenCurrentUser();

// The key at `path`, which must exist, for reading and writing. Raises "RegOpenKeyExW() failed".
Key OpenKey(HKEY parent, const WideString& path);

// Sets a REG_SZ value, creating every key on the path that is missing. Raises "RegCreateKeyEx() failed" or
// "RegSetValueEx() failed".
void SetStringValue(HKEY hive, const WideString& path, const WideString& name, const WideString& text);

// Deletes a key below `parent` when it has no subkeys; one that has some or does not exist stays as it is.
// Raises "RegOpenKeyExW() failed" when `parent` cannot be opened.
void DeleteSubkey(HKEY hive, const WideString& parent, const WideString& subkey);

// The same with everything below the key. `subkey` is not empty.
void DeleteTree(HKEY hive, const WideString& parent, const WideString& subkey);

// Deletes one value; a missing one is no failure. Raises "RegOpenKeyExW() failed" when the key cannot be
// opened.
void DeleteValue(HKEY hive, const WideString& path, const WideString& name);

// True when the value is a REG_SZ of 1 to 512 bytes, whose text up to its first NUL `text` then receives if
// given. Raises nothing.
bool HasStringValue(HKEY hive, const WideString& path, const WideString& name, WideString* text = nullptr);

// The text, up to its first NUL, of a REG_SZ, REG_EXPAND_SZ (unexpanded) or REG_MULTI_SZ value of at most
// 1024 bytes; nothing when there is no such value.
std::optional<WideString> FindStringValue(HKEY hive, const WideString& path, const WideString& name);

// The same. Raises "SHGetValueW() failed" or "registry value is not a string" when there is none.
WideString GetStringValue(HKEY hive, const WideString& path, const WideString& name);
