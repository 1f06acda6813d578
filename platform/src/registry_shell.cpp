// The shell's registry helpers and association queries. An extension's association is the ProgID that its
// merged class key names; a user's choice and OpenWithProgids are not consulted.
#include <shlwapi.h>

#include <cstring>

#include "hives.h"

namespace platform {
namespace {

// Deletes from the leaves up; what was deleted before a refused key stays deleted.
LSTATUS DeleteTree(std::shared_ptr<Node> key) {
  if (Forbidden(*key)) return ERROR_ACCESS_DENIED;
  while (!key->subkeys.empty()) {
    if (const LSTATUS error = DeleteTree(key->subkeys.back())) return error;
  }
  RemoveKey(*key);
  return ERROR_SUCCESS;
}

// The default text of a class key up to its first NUL; nothing when there is no such key, the empty text when
// it has no default value.
std::optional<std::u16string> ClassText(const std::u16string& path) {
  View classes, key;
  ViewOf(HKEY_CLASSES_ROOT, 0, classes);
  if (OpenPath(classes, path, 0, key) != ERROR_SUCCESS) return std::nullopt;
  const Value* value = FindValue(key, {});
  std::u16string text;
  if (value && (value->type == REG_SZ || value->type == REG_EXPAND_SZ)) {
    text.resize(value->data.size() / 2);
    if (!text.empty()) std::memcpy(text.data(), value->data.data(), text.size() * 2);
  }
  return text.substr(0, text.find(u'\0'));
}

// The program of a command line: the first word, or what stands in quotation marks.
std::u16string Program(const std::u16string& command) {
  if (command.starts_with(u'"')) return command.substr(1, command.find(u'"', 1) - 1);
  return command.substr(0, command.find(u' '));
}

std::u16string Association(ASSOCSTR string, LPCWSTR extension) {
  const auto progId = ClassText(extension);
  if (!progId || progId->empty() || !ClassText(*progId)) return {};
  if (string == ASSOCSTR_PROGID) return *progId;
  return Program(ClassText(*progId + u"\\shell\\open\\command").value_or(u""));
}

}  // namespace
}  // namespace platform

using namespace platform;

// Gives the stored type; an expandable text is not expanded.
LSTATUS WINAPI SHGetValueW(HKEY key, LPCWSTR subkey, LPCWSTR name, DWORD* type, void* data, DWORD* size) {
  if (CallFails("SHGetValueW", ERROR_FILE_NOT_FOUND)) return PlannedStatus();
  std::lock_guard lock(TheHives().mutex);
  View from, found;
  LSTATUS error = ViewOf(key, Text(subkey).empty() ? KEY_QUERY_VALUE : 0, from);
  if (!error) error = OpenPath(from, Text(subkey), 0, found);
  if (error) return error;
  const Value* value = FindValue(found, Text(name));
  return value ? CopyValue(*value, type, data, size) : ERROR_FILE_NOT_FOUND;
}

LSTATUS WINAPI SHSetValueW(HKEY key, LPCWSTR subkey, LPCWSTR name, DWORD type, LPCVOID data, DWORD size) {
  if (CallFails("SHSetValueW", ERROR_ACCESS_DENIED)) return PlannedStatus();
  if (!data && size) Unsupported("SHSetValueW", "a size without data");
  std::lock_guard lock(TheHives().mutex);
  std::shared_ptr<Node> from, made;
  LSTATUS error = NodeOf("SHSetValueW", key, Text(subkey).empty() ? KEY_SET_VALUE : 0, from);
  if (!error) error = CreatePath(from, Text(subkey), 0, made);
  if (error) return error;
  if (Text(name).size() > maxValueName) return ERROR_INVALID_PARAMETER;
  SetValue(*made, Text(name), type, {static_cast<const BYTE*>(data), size});
  return ERROR_SUCCESS;
}

LSTATUS WINAPI SHDeleteKeyW(HKEY key, LPCWSTR subkey) {
  if (CallFails("SHDeleteKeyW", ERROR_ACCESS_DENIED)) return PlannedStatus();
  if (Text(subkey).empty()) Unsupported("SHDeleteKeyW", "no subkey, which would empty the key itself");
  std::lock_guard lock(TheHives().mutex);
  std::shared_ptr<Node> from;
  View found;
  LSTATUS error = NodeOf("SHDeleteKeyW", key, 0, from);
  if (!error) error = OpenPath({{from}, false}, subkey, 0, found);
  return error ? error : DeleteTree(found.layers.front());
}

HRESULT WINAPI AssocQueryStringW(ASSOCF flags, ASSOCSTR string, LPCWSTR association, LPCWSTR extra,
                                 LPWSTR out, DWORD* length) {
  if (CallFails("AssocQueryStringW", ERROR_NOT_ENOUGH_MEMORY)) return HRESULT_FROM_WIN32(PlannedError());
  if (flags != (ASSOCF_INIT_IGNOREUNKNOWN | ASSOCF_NOTRUNCATE))
    Unsupported("AssocQueryStringW", "these flags");
  if (string != ASSOCSTR_EXECUTABLE && string != ASSOCSTR_PROGID)
    Unsupported("AssocQueryStringW", "this string");
  if (!Text(association).starts_with(u'.')) Unsupported("AssocQueryStringW", "other than an extension");
  if (extra || out || !length) Unsupported("AssocQueryStringW", "other than a size query");
  std::lock_guard lock(TheHives().mutex);
  const std::u16string answer = Association(string, association);
  if (answer.empty()) return HRESULT_FROM_WIN32(ERROR_NO_ASSOCIATION);
  *length = static_cast<DWORD>(answer.size() + 1);
  return S_FALSE;
}
