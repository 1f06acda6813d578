// Executable files: written and read as bytes, their resources listed through the platform.
#pragma once

#include <windows.h>

#include <map>
#include <optional>
#include <string>

#include "common/text.h"

namespace pe {

using Bytes = std::string;

inline bool Write(const WideString& path, const Bytes& bytes) {
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  DWORD written = 0;
  WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  CloseHandle(file);
  return written == bytes.size();
}

inline Bytes Read(const WideString& path) {
  const HANDLE file =
      CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return "<unreadable>";
  Bytes bytes;
  char part[4096];
  DWORD count = 0;
  while (ReadFile(file, part, sizeof part, &count, nullptr) && count != 0) bytes.append(part, count);
  CloseHandle(file);
  return bytes;
}

// "type/name/language" to the bytes, texts in narrow characters.
using Resources = std::map<std::string, Bytes>;

inline std::string NameOf(LPCWSTR name) {
  if (IS_INTRESOURCE(name)) return std::to_string(reinterpret_cast<ULONG_PTR>(name));
  std::string text;
  for (; *name; ++name) text += static_cast<char>(*name);
  return text;
}

inline std::optional<Bytes> Find(HMODULE module, LPCWSTR type, LPCWSTR name, WORD language) {
  const HRSRC found = FindResourceExW(module, type, name, language);
  if (!found) return {};
  const auto* data = static_cast<const char*>(LockResource(LoadResource(module, found)));
  return Bytes(data, SizeofResource(module, found));
}

inline BOOL CALLBACK AddLanguage(HMODULE module, LPCWSTR type, LPCWSTR name, WORD language, LONG_PTR list) {
  const std::string key = NameOf(type) + "/" + NameOf(name) + "/" + std::to_string(language);
  (*reinterpret_cast<Resources*>(list))[key] = Find(module, type, name, language).value_or("<missing>");
  return TRUE;
}
inline BOOL CALLBACK AddName(HMODULE module, LPCWSTR type, LPWSTR name, LONG_PTR list) {
  return EnumResourceLanguagesW(module, type, name, AddLanguage, list);
}
inline BOOL CALLBACK AddType(HMODULE module, LPWSTR type, LONG_PTR list) {
  return EnumResourceNamesW(module, type, AddName, list);
}

// All resources of a file; nothing when it cannot be loaded.
inline std::optional<Resources> List(const WideString& path) {
  const HMODULE module = LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
  if (!module) return {};
  Resources list;
  EnumResourceTypesW(module, AddType, reinterpret_cast<LONG_PTR>(&list));
  FreeLibrary(module);
  return list;
}

inline BOOL Put(HANDLE update, LPCWSTR type, LPCWSTR name, WORD language, Bytes data) {
  return UpdateResourceW(update, type, name, language, data.data(), static_cast<DWORD>(data.size()));
}

}  // namespace pe
