// Enumeration of resources, through the platform's three levels.
#include "host/resources.h"

#include "common/handles.h"
#include "host/text.h"

namespace host {
namespace {

bool IsNumber(LPCWSTR name) {
  return reinterpret_cast<std::uintptr_t>(name) <= 0xFFFF;
}
WORD Number(LPCWSTR name) {
  return static_cast<WORD>(reinterpret_cast<std::uintptr_t>(name));
}

BOOL CALLBACK VisitLanguage(HMODULE module, LPCWSTR type, LPCWSTR name, WORD language, LONG_PTR to) {
  if (!IsNumber(type) || !IsNumber(name)) return TRUE;
  const HRSRC found = FindResourceExW(module, type, name, language);
  const HGLOBAL loaded = found ? LoadResource(module, found) : nullptr;
  const void* data = loaded ? LockResource(loaded) : nullptr;
  if (!data) return TRUE;
  (*reinterpret_cast<Resources*>(to))[{Number(type), Number(name), language}].assign(
      static_cast<const char*>(data), SizeofResource(module, found));
  return TRUE;
}
BOOL CALLBACK VisitName(HMODULE module, LPCWSTR type, LPWSTR name, LONG_PTR to) {
  EnumResourceLanguagesW(module, type, name, VisitLanguage, to);
  return TRUE;
}
BOOL CALLBACK VisitType(HMODULE module, LPWSTR type, LONG_PTR to) {
  EnumResourceNamesW(module, type, VisitName, to);
  return TRUE;
}

}  // namespace

Resources ReadResources(const std::string& path) {
  Resources all;
  const UniqueModule module(LoadLibraryExW(Widen(path).c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE));
  if (module) EnumResourceTypesW(module.get(), VisitType, reinterpret_cast<LONG_PTR>(&all));
  return all;
}

}  // namespace host
