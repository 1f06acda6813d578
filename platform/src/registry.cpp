// The registry calls. A handle's rights are checked where values are read or written and keys enumerated;
// what opens, creates or deletes a key by its path asks nothing of the handle that the path starts from.
#include <winreg.h>

#include "hives.h"

namespace platform {
namespace {

// Entry number `index` of a key.
template <class Entry>
const Entry* EntryAt(const char* function, const View& view, std::vector<Entry> Node::*list, DWORD index) {
  if (view.classes) Unsupported(function, "enumeration below HKEY_CLASSES_ROOT");
  const auto& entries = (*view.layers.front()).*list;
  return index < entries.size() ? &entries[index] : nullptr;
}

// Hands out a name with its NUL; `length` is the room in units, then the length without the NUL.
LSTATUS CopyName(const std::u16string& name, LPWSTR out, LPDWORD length) {
  if (*length <= name.size()) return ERROR_MORE_DATA;
  *length = static_cast<DWORD>(name.copy(out, name.size()));
  out[*length] = 0;
  return ERROR_SUCCESS;
}

void RequireNull(const char* function, std::initializer_list<const void*> arguments) {
  for (const void* argument : arguments) {
    if (argument) Unsupported(function, "class, security, write time, disposition or a reserved argument");
  }
}

void CheckAccess(const char* function, REGSAM access) {
  const REGSAM views = access & (KEY_WOW64_32KEY | KEY_WOW64_64KEY);
  if ((access & ~(KEY_ALL_ACCESS | views)) || access == views ||
      views == (KEY_WOW64_32KEY | KEY_WOW64_64KEY)) {
    Unsupported(function, "this combination of access rights");
  }
}

HKEY MakeHandle(View view, REGSAM access) {
  return static_cast<HKEY>(AddHandle(std::make_shared<KeyHandle>(std::move(view), access)));
}

}  // namespace
}  // namespace platform

using namespace platform;

LSTATUS WINAPI RegOpenCurrentUser(REGSAM access, HKEY* result) {
  if (CallFails("RegOpenCurrentUser", ERROR_ACCESS_DENIED)) return PlannedStatus();
  CheckAccess("RegOpenCurrentUser", access);
  std::lock_guard lock(TheHives().mutex);
  const auto& user = TheHives().user;
  if (Forbidden(*user)) return ERROR_ACCESS_DENIED;
  *result = MakeHandle({{user}, false}, access);
  return ERROR_SUCCESS;
}

LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR subkey, DWORD options, REGSAM access, HKEY* result) {
  if (CallFails("RegOpenKeyExW", ERROR_ACCESS_DENIED)) return PlannedStatus();
  if (options) Unsupported("RegOpenKeyExW", "options");
  CheckAccess("RegOpenKeyExW", access);
  std::lock_guard lock(TheHives().mutex);
  View from, found;
  *result = nullptr;
  LSTATUS error = ViewOf(key, 0, from);
  if (!error) error = OpenPath(from, Text(subkey), access, found);
  if (!error) *result = MakeHandle(std::move(found), access);
  return error;
}

LSTATUS WINAPI RegCreateKeyExW(HKEY key, LPCWSTR subkey, DWORD reserved, LPWSTR className, DWORD options,
                               REGSAM access, LPSECURITY_ATTRIBUTES security, HKEY* result,
                               LPDWORD disposition) {
  if (CallFails("RegCreateKeyExW", ERROR_ACCESS_DENIED)) return PlannedStatus();
  RequireNull("RegCreateKeyExW", {className, security, disposition});
  if (reserved || options != REG_OPTION_NON_VOLATILE) Unsupported("RegCreateKeyExW", "options");
  CheckAccess("RegCreateKeyExW", access);
  std::lock_guard lock(TheHives().mutex);
  std::shared_ptr<Node> from, made;
  LSTATUS error = NodeOf("RegCreateKeyExW", key, 0, from);
  if (!error) error = CreatePath(from, Text(subkey), access, made);
  if (!error) *result = MakeHandle({{made}, false}, access);
  return error;
}

LSTATUS WINAPI RegCloseKey(HKEY key) {
  CallPasses("RegCloseKey");
  if (key == HKEY_CLASSES_ROOT || key == HKEY_CURRENT_USER || key == HKEY_LOCAL_MACHINE) return ERROR_SUCCESS;
  if (!FindObject(key)) return ERROR_INVALID_HANDLE;
  Close<KeyHandle>("RegCloseKey", key);
  return ERROR_SUCCESS;
}

LSTATUS WINAPI RegDeleteKeyW(HKEY key, LPCWSTR subkey) {
  if (CallFails("RegDeleteKeyW", ERROR_ACCESS_DENIED)) return PlannedStatus();
  if (!subkey) return ERROR_INVALID_PARAMETER;
  std::lock_guard lock(TheHives().mutex);
  std::shared_ptr<Node> from;
  View found;
  LSTATUS error = NodeOf("RegDeleteKeyW", key, 0, from);
  if (!error) error = OpenPath({{from}, false}, subkey, 0, found);
  if (error) return error;
  Node& leaf = *found.layers.front();
  if (!leaf.parent || !leaf.subkeys.empty()) return ERROR_ACCESS_DENIED;
  RemoveKey(leaf);
  return ERROR_SUCCESS;
}

LSTATUS WINAPI RegEnumKeyExW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength, LPDWORD reserved,
                             LPWSTR className, LPDWORD classLength, FILETIME* lastWrite) {
  if (CallFails("RegEnumKeyExW", ERROR_KEY_DELETED)) return PlannedStatus();
  RequireNull("RegEnumKeyExW", {reserved, className, classLength, lastWrite});
  std::lock_guard lock(TheHives().mutex);
  View view;
  if (const LSTATUS error = ViewOf(key, KEY_ENUMERATE_SUB_KEYS, view)) return error;
  const auto* entry = EntryAt("RegEnumKeyExW", view, &Node::subkeys, index);
  return entry ? CopyName((*entry)->name, name, nameLength) : ERROR_NO_MORE_ITEMS;
}

LSTATUS WINAPI RegQueryValueExW(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                                LPDWORD size) {
  if (CallFails("RegQueryValueExW", ERROR_FILE_NOT_FOUND)) return PlannedStatus();
  RequireNull("RegQueryValueExW", {reserved});
  std::lock_guard lock(TheHives().mutex);
  View view;
  if (const LSTATUS error = ViewOf(key, KEY_QUERY_VALUE, view)) return error;
  const Value* value = FindValue(view, Text(name));
  return value ? CopyValue(*value, type, data, size) : ERROR_FILE_NOT_FOUND;
}

// The default value of a subkey; a key without one has the empty text.
LSTATUS WINAPI RegQueryValueW(HKEY key, LPCWSTR subkey, LPWSTR data, LONG* size) {
  if (CallFails("RegQueryValueW", ERROR_FILE_NOT_FOUND)) return PlannedStatus();
  if (data && !size) return ERROR_INVALID_PARAMETER;
  std::lock_guard lock(TheHives().mutex);
  View from, found;
  LSTATUS error = ViewOf(key, Text(subkey).empty() ? KEY_QUERY_VALUE : 0, from);
  if (!error) error = OpenPath(from, Text(subkey), 0, found);
  if (error) return error;
  static const Value none{{}, {}, REG_SZ, {0, 0}};
  const Value* value = FindValue(found, {});
  if (value && value->type != REG_SZ) return ERROR_INVALID_DATA;
  DWORD length = size ? static_cast<DWORD>(*size) : 0;
  error = CopyValue(value ? *value : none, nullptr, data, &length);
  if (size) *size = static_cast<LONG>(length);
  return error;
}

// Stores the bytes as they are: a text that comes without its NUL is kept without it.
LSTATUS WINAPI RegSetValueExW(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data,
                              DWORD size) {
  if (CallFails("RegSetValueExW", ERROR_NO_SYSTEM_RESOURCES)) return PlannedStatus();
  if (reserved || (!data && size))
    Unsupported("RegSetValueExW", "a size without data, or a reserved argument");
  std::lock_guard lock(TheHives().mutex);
  std::shared_ptr<Node> target;
  if (const LSTATUS error = NodeOf("RegSetValueExW", key, KEY_SET_VALUE, target)) return error;
  if (Text(name).size() > maxValueName) return ERROR_INVALID_PARAMETER;
  SetValue(*target, Text(name), type, {data, size});
  return ERROR_SUCCESS;
}

LSTATUS WINAPI RegDeleteValueW(HKEY key, LPCWSTR name) {
  if (CallFails("RegDeleteValueW", ERROR_FILE_NOT_FOUND)) return PlannedStatus();
  std::lock_guard lock(TheHives().mutex);
  std::shared_ptr<Node> target;
  if (const LSTATUS error = NodeOf("RegDeleteValueW", key, KEY_SET_VALUE, target)) return error;
  return RemoveValue(*target, Text(name)) ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
}

LSTATUS WINAPI RegEnumValueW(HKEY key, DWORD index, LPWSTR name, LPDWORD nameLength, LPDWORD reserved,
                             LPDWORD type, LPBYTE data, LPDWORD size) {
  if (CallFails("RegEnumValueW", ERROR_KEY_DELETED)) return PlannedStatus();
  RequireNull("RegEnumValueW", {reserved});
  std::lock_guard lock(TheHives().mutex);
  View view;
  if (const LSTATUS error = ViewOf(key, KEY_QUERY_VALUE, view)) return error;
  const Value* value = EntryAt("RegEnumValueW", view, &Node::values, index);
  if (!value) return ERROR_NO_MORE_ITEMS;
  const LSTATUS error = CopyName(value->name, name, nameLength);
  return error ? error : CopyValue(*value, type, data, size);
}
