// Files and resources of the guest, read and written with the platform's calls. Files are loaded as data, so
// that none of their code runs and what the module loads itself stays apart.
#include "support/module_fixture.h"

#include <windows.h>

#include <objbase.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <set>

#include "common/handles.h"
#include "host/guest_view.h"
#include "launcher/fs.h"

namespace {

using Identity = std::array<WORD, 3>;  // type, name, language

WORD Number(LPCWSTR name) {
  return static_cast<WORD>(reinterpret_cast<std::uintptr_t>(name));
}
bool IsNumber(LPCWSTR name) {
  return reinterpret_cast<std::uintptr_t>(name) <= 0xFFFF;
}

BOOL CALLBACK VisitLanguage(HMODULE, LPCWSTR type, LPCWSTR name, WORD language, LONG_PTR to) {
  auto& all = *reinterpret_cast<std::vector<Identity>*>(to);
  if (IsNumber(type) && IsNumber(name)) all.push_back({Number(type), Number(name), language});
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

// Type, name and language of every numbered resource, sorted.
std::vector<Identity> ResourcesOf(HMODULE module) {
  std::vector<Identity> all;
  EnumResourceTypesW(module, VisitType, reinterpret_cast<LONG_PTR>(&all));
  std::sort(all.begin(), all.end());
  return all;
}

std::string DataOf(HMODULE module, const Identity& id) {
  const HRSRC found = FindResourceExW(module, MAKEINTRESOURCEW(id[0]), MAKEINTRESOURCEW(id[1]), id[2]);
  return {static_cast<const char*>(LockResource(LoadResource(module, found))), SizeofResource(module, found)};
}

std::string Line(HMODULE module, const Identity& id) {
  return std::to_string(id[0]) + "/" + std::to_string(id[1]) + "/" + std::to_string(id[2]) + " " +
         std::to_string(DataOf(module, id).size()) + "\n";
}

UniqueModule LoadAsData(const WideString& path) {
  UniqueModule module(LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE));
  EXPECT_TRUE(module) << WideToUtf8(path);
  return module;
}

}  // namespace

void ModuleTest::SetUp() {
  GateTest::SetUp();
  InstallTools();
  ASSERT_GE(CoInitialize(nullptr), 0);
  folder_ = LauncherFolder();
}

void ModuleTest::TearDown() {
  CoUninitialize();
  GateTest::TearDown();
}

MacAppInfo ModuleTest::Info(const std::string& name) {
  return {Utf8ToWide("test." + name), Utf8ToWide(name)};
}

WideString ModuleTest::Launcher(const std::string& name) const {
  return folder_ + TEXT("\\") + Utf8ToWide(name) + TEXT(" (Mac).exe");
}

WideString ModuleTest::Shortcut(const std::string& name) {
  return Utf8ToWide(host::ShortcutFolder() + "\\" + name + " (Mac).lnk");
}

WideString ModuleTest::TemplateFile() {
  return TEXT("C:\\Program Files\\Tessarine\\Tools\\Applications\\vel_micro_app.exe");
}

std::string ModuleTest::Files() {
  std::set<std::string> names;
  for (const auto& [path, data] : host::TakeSnapshot().files) {
    if (!data.empty()) names.insert(path.substr(path.rfind('\\') + 1) + "\n");
  }
  return std::accumulate(names.begin(), names.end(), std::string());
}

bool FileIsThere(const WideString& path) {
  return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

void WriteFileAt(const WideString& path, const std::string& bytes) {
  const UniqueFile file(
      CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  DWORD written = 0;
  ASSERT_TRUE(file) << WideToUtf8(path);
  EXPECT_TRUE(WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr));
}

std::string ResourceData(const WideString& path, WORD type, WORD name, WORD language) {
  const UniqueModule module = LoadAsData(path);
  if (!module) return "unreadable";
  const Identity id{type, name, language};
  const auto all = ResourcesOf(module.get());
  return std::find(all.begin(), all.end(), id) == all.end() ? "none" : DataOf(module.get(), id);
}

std::string ResourceChanges(const WideString& path, const WideString& base) {
  const UniqueModule old = LoadAsData(base), now = LoadAsData(path);
  if (!old || !now) return "unreadable";
  const auto had = ResourcesOf(old.get()), has = ResourcesOf(now.get());
  std::vector<Identity> either;
  std::set_union(had.begin(), had.end(), has.begin(), has.end(), std::back_inserter(either));
  std::string changes;
  for (const Identity& id : either) {
    const bool was = std::binary_search(had.begin(), had.end(), id);
    const bool is = std::binary_search(has.begin(), has.end(), id);
    if (was && is && DataOf(old.get(), id) == DataOf(now.get(), id)) continue;
    if (was) changes += "-" + Line(old.get(), id);
    if (is) changes += "+" + Line(now.get(), id);
  }
  return changes;
}

void PutResource(const WideString& path, WORD type, WORD name, WORD language, const std::string& data) {
  const HANDLE update = BeginUpdateResourceW(path.c_str(), FALSE);
  ASSERT_NE(update, nullptr);
  std::string copy = data;
  EXPECT_TRUE(UpdateResourceW(update, MAKEINTRESOURCEW(type), MAKEINTRESOURCEW(name), language,
                              copy.empty() ? nullptr : copy.data(), static_cast<DWORD>(copy.size())));
  EXPECT_TRUE(EndUpdateResourceW(update, FALSE));
}

std::string Utf16Bytes(const WideString& text) {
  return {reinterpret_cast<const char*>(text.c_str()), (text.size() + 1) * sizeof(WCHAR)};
}
