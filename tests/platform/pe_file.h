// Executable files for tests: written and read as bytes, their resources listed through the platform, and
// their sections found by a reader that shares nothing with the layer's own.
#pragma once

#include <windows.h>

#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "common/text.h"
#include "stub/stub.h"

namespace pe {

using Bytes = std::string;

inline Bytes ToBytes(const std::vector<std::byte>& image) {
  return {reinterpret_cast<const char*>(image.data()), image.size()};
}

inline Bytes Stub(const stub::Layout& layout = {}) {
  return ToBytes(stub::MakeTemplateStub(layout));
}

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

template <class Number>
Number At(const Bytes& file, std::size_t offset) {
  Number number{};
  if (offset + sizeof number <= file.size()) std::memcpy(&number, file.data() + offset, sizeof number);
  return number;
}

template <class Number>
void Set(Bytes& file, std::size_t offset, Number number) {
  std::memcpy(&file.at(offset + sizeof number - 1) - (sizeof number - 1), &number, sizeof number);
}

// Offsets of the optional header, of data directory 0 and of the section table.
inline std::size_t OptionalHeader(const Bytes& file) {
  return At<DWORD>(file, 60) + 24;
}
inline std::size_t Directories(const Bytes& file) {
  const std::size_t header = OptionalHeader(file);
  return header + (At<WORD>(file, header) == 0x20B ? 112 : 96);
}
inline std::size_t SectionTable(const Bytes& file) {
  return OptionalHeader(file) + At<WORD>(file, At<DWORD>(file, 60) + 20);
}
inline std::size_t SectionCount(const Bytes& file) {
  return At<WORD>(file, At<DWORD>(file, 60) + 6);
}

struct Section {
  DWORD address;
  Bytes bytes;
  bool operator==(const Section&) const = default;
};

// Names are unique in the images of tests.
inline std::map<std::string, Section> Sections(const Bytes& file) {
  std::map<std::string, Section> sections;
  for (std::size_t i = 0; i < SectionCount(file); ++i) {
    const std::size_t header = SectionTable(file) + i * 40;
    const std::string name = std::string(file, header, 8).c_str();
    sections[name] = {At<DWORD>(file, header + 12),
                      file.substr(At<DWORD>(file, header + 20), At<DWORD>(file, header + 16))};
  }
  return sections;
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
