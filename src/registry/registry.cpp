// Registry access. Keys to delete from are opened for reading and writing, keys to write into for writing
// only.
#include "registry/registry.h"

#include <shlwapi.h>

#include "common/names.h"
#include "xdt/exception/exc_tag.h"

Key OpenCurrentUser() {
  HKEY hive = nullptr;
  if (RegOpenCurrentUser(KEY_READ | KEY_WRITE, &hive) != ERROR_SUCCESS)
    XDT_RAISE("RegOpenCurrentUser() failed");
  return Key(hive);
}

Key OpenKey(HKEY parent, const WideString& path) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(parent, path.c_str(), 0, KEY_READ | KEY_WRITE, &key) != ERROR_SUCCESS) {
    XDT_RAISE("RegOpenKeyExW() failed");
  }
  return Key(key);
}

void SetStringValue(HKEY hive, const WideString& path, const WideString& name, const WideString& text) {
  HKEY created = nullptr;
  if (RegCreateKeyExW(hive, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr, &created,
                      nullptr) != ERROR_SUCCESS) {
    XDT_RAISE("RegCreateKeyEx() failed");
  }
  const Key key(created);
  const auto size = static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR));
  if (RegSetValueExW(key.get(), name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()), size) !=
      ERROR_SUCCESS) {
    XDT_RAISE("RegSetValueEx() failed");
  }
}

void DeleteSubkey(HKEY hive, const WideString& parent, const WideString& subkey) {
  const Key key = OpenKey(hive, parent);
  RegDeleteKeyW(key.get(), subkey.c_str());
}

void DeleteTree(HKEY hive, const WideString& parent, const WideString& subkey) {
  const Key key = OpenKey(hive, parent);
  SHDeleteKeyW(key.get(), subkey.c_str());
}

void DeleteValue(HKEY hive, const WideString& path, const WideString& name) {
  const Key key = OpenKey(hive, path);
  RegDeleteValueW(key.get(), name.c_str());
}

bool HasStringValue(HKEY hive, const WideString& path, const WideString& name, WideString* text) {
  WCHAR buffer[256]{};
  DWORD type = REG_NONE;
  DWORD size = sizeof buffer;
  if (SHGetValueW(hive, path.c_str(), name.c_str(), &type, buffer, &size) != ERROR_SUCCESS) return false;
  if (type != REG_SZ || size == 0) return false;
  if (text != nullptr) *text = TextOf(buffer, size / sizeof(WCHAR));
  return true;
}

namespace {

// A value of at most 1024 bytes, as far as it could be read.
struct Value {
  WCHAR buffer[512]{};
  DWORD type = REG_NONE;
  DWORD size = sizeof buffer;
  bool found = false;

  bool IsText() const { return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ; }
  WideString Text() const { return TextOf(buffer, size / sizeof(WCHAR)); }
};

Value ReadValue(HKEY hive, const WideString& path, const WideString& name) {
  Value value;
  value.found =
      SHGetValueW(hive, path.c_str(), name.c_str(), &value.type, value.buffer, &value.size) == ERROR_SUCCESS;
  return value;
}

}  // namespace

std::optional<WideString> FindStringValue(HKEY hive, const WideString& path, const WideString& name) {
  const Value value = ReadValue(hive, path, name);
  if (!value.found || !value.IsText()) return std::nullopt;
  return value.Text();
}

WideString GetStringValue(HKEY hive, const WideString& path, const WideString& name) {
  const Value value = ReadValue(hive, path, name);
  if (!value.found) XDT_RAISE("SHGetValueW() failed");
  if (!value.IsText()) XDT_RAISE("registry value is not a string");
  return value.Text();
}
