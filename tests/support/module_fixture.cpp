// Files and resources of the guest, written with the platform's calls and read as the host tool reads them.
#include "support/module_fixture.h"

#include <windows.h>

#include <objbase.h>

#include <numeric>
#include <set>

#include "launcher/fs.h"

void ModuleTest::SetUp() {
  GateTest::SetUp();
  host::PrepareGuest();
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

std::string ModuleTest::Parts(const std::string& name) const {
  std::string parts;
  const WideString launcher = Launcher(name);
  if (FileIsThere(launcher))
    parts += ResourcesOf(launcher) == ResourcesOf(TemplateFile()) ? "template " : "launcher ";
  if (hive::Has(host::classesKey + "\\Applications\\" + name + " (Mac).exe")) parts += "key ";
  if (FileIsThere(Shortcut(name))) parts += "shortcut ";
  return parts;
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
  const host::Resources all = ResourcesOf(path);
  const auto found = all.find({type, name, language});
  return found == all.end() ? "none" : found->second;
}

host::Resources ResourcesOf(const WideString& path) {
  return host::ReadResources(WideToUtf8(path));
}

void PutResource(const WideString& path, WORD type, WORD name, WORD language, const std::string& data) {
  const HANDLE update = BeginUpdateResourceW(path.c_str(), FALSE);
  ASSERT_NE(update, nullptr);
  std::string copy = data;
  EXPECT_TRUE(UpdateResourceW(update, MAKEINTRESOURCEW(type), MAKEINTRESOURCEW(name), language,
                              copy.empty() ? nullptr : copy.data(), static_cast<DWORD>(copy.size())));
  EXPECT_TRUE(EndUpdateResourceW(update, FALSE));
}
