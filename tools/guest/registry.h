// The guest's registry, written and read through the platform's calls. A key is spelled with its root, as
// "HKCU\...", "HKLM\..." or "HKCR\..."; the empty name is a key's default value. Text is UTF-8.
#pragma once

#include <windows.h>

#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>

#include "common/handles.h"
#include "guest/text.h"

namespace host {

// The key for reading; an empty owner when it cannot be opened.
Key OpenKey(const std::string& key);

// Writers make the parents that are missing, and throw a std::runtime_error that names the key.
void PutKey(const std::string& key);
void PutData(const std::string& key, const std::string& value, DWORD type, std::string_view bytes);
void PutText(const std::string& key, const std::string& value, const std::string& text);  // a REG_SZ

// A key and everything below it as it is stored, parents first: each key with a null `value`, and then its
// values, whose data are valid during the call. Nothing when the key cannot be opened.
using RegistryVisitor = std::function<void(const std::string& key, const std::string* value, DWORD type,
                                           std::span<const std::byte> data)>;
void VisitKeys(const std::string& key, const RegistryVisitor& visit);

// Guest paths with what they hold; a value's path is its key, valueMark and its name.
using Entries = std::map<std::string, std::string, PathLess>;

// Adds the key and everything below it: "" for a key, otherwise the value's data, as RegistryText or as the
// description of another type. Nothing when the key cannot be opened.
void ReadKeys(const std::string& key, Entries& entries);

// The notation of a REG_SZ among entries, and its text again. A text in no other notation starts with '"'.
std::string RegistryText(const std::string& text);
inline bool IsRegistryText(const std::string& data) {
  return data.starts_with('"');
}
inline std::string TextOfValue(const std::string& data) {
  return data.substr(1, data.size() - 2);
}
inline std::string ValuePath(const std::string& key, const std::string& value) {
  return key + valueMark + value;
}

}  // namespace host
