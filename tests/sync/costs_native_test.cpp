// What one more application costs: exactly these calls of the platform, which the behaviour asks for,
// whatever else the guest holds.
#include <platform/control.h>

#include <array>
#include <map>

#include "support/hive.h"
#include "support/module_fixture.h"
#include "sync/sync_pass.h"
#include "sync/withdrawal.h"

namespace {

using Counts = std::map<std::string, std::size_t>;

class ApplicationCosts : public ModuleTest {
 protected:
  // Five types, of which it is to be the default of one, two schemes, and one icon.
  static host::Application Application(std::size_t number, const std::string& name) {
    const std::string n = std::to_string(number);
    host::Application application = TestApplication(name + n);
    for (const char* type : {"a", "b", "c", "d", "e"}) application.documentTypes.push_back("t" + n + type);
    application.defaultTypes = {application.documentTypes.front()};
    application.urlSchemes = {"s" + n + "a", "s" + n + "b"};
    return application;
  }

  // Every second one is called `name`.
  void ShareSome(std::size_t count, const std::string& name) {
    std::vector<host::Application> applications;
    for (std::size_t i = 0; i < count; ++i)
      applications.push_back(Application(i, i % 2 == 0 ? name : "App "));
    Share(std::move(applications));
  }

  template <class Work>
  static Counts CountsOf(Work work) {
    platform::ResetCallCounts();
    work();
    return platform::CallCounts();
  }

  // First pass, unchanged pass, every second application renamed, withdrawal.
  std::array<Counts, 4> Story(std::size_t count) {
    const auto pass = [this] { SyncHostApplications(folder()); };
    std::array<Counts, 4> story;
    ShareSome(count, "App ");
    story[0] = CountsOf(pass);
    story[1] = CountsOf(pass);
    ShareSome(count, "Renamed ");
    story[2] = CountsOf(pass);
    story[3] = CountsOf(WithdrawHostApplications);
    Share({});
    pass();
    hive::Drop("HKCU\\Software\\Classes");
    hive::PutKey("HKCU\\Software\\Classes\\Applications");
    return story;
  }
};

TEST_F(ApplicationCosts, AreTheCallsThatTheBehaviourAsksFor) {
  // Of two applications: both new, both as they were, one of them under another name, both withdrawn.
  const std::map<std::string, std::array<std::size_t, 4>> expected = {
      {"AssocQueryStringW", {2, 2, 2, 0}},
      {"BeginUpdateResourceW", {2, 0, 1, 0}},
      {"CloseHandle", {4, 2, 3, 0}},
      {"CoCreateInstance", {2, 0, 1, 0}},
      {"CopyFileW", {2, 0, 1, 0}},
      {"CreateFileA", {4, 2, 3, 0}},
      {"DeleteFileW", {0, 0, 2, 0}},
      {"DeviceIoControl", {4, 2, 3, 0}},
      {"EndUpdateResourceW", {2, 0, 1, 0}},
      {"FindNextFileW", {0, 2, 2, 0}},
      {"FindResourceExW", {0, 2, 1, 0}},
      {"FreeLibrary", {0, 2, 1, 0}},
      {"GetFileAttributesW", {2, 2, 2, 0}},
      {"IPersistFile::Save", {2, 0, 1, 0}},
      {"IPropertyStore::Commit", {2, 0, 1, 0}},
      {"IPropertyStore::SetValue", {4, 0, 2, 0}},
      {"IShellLinkW::SetDescription", {2, 0, 1, 0}},
      {"IShellLinkW::SetPath", {2, 0, 1, 0}},
      {"IUnknown::QueryInterface", {4, 0, 2, 0}},
      {"IUnknown::Release", {6, 0, 3, 0}},
      {"LoadLibraryW", {0, 2, 1, 0}},
      {"LoadResource", {0, 2, 1, 0}},
      {"LockResource", {0, 2, 1, 0}},
      {"MultiByteToWideChar", {40, 40, 40, 0}},
      {"RegCloseKey", {76, 60, 66, 14}},
      {"RegCreateKeyExW", {52, 40, 42, 0}},
      {"RegDeleteKeyW", {4, 4, 4, 4}},
      {"RegDeleteValueW", {2, 2, 3, 2}},
      {"RegEnumKeyExW", {0, 0, 0, 65}},
      {"RegOpenCurrentUser", {14, 12, 14, 2}},
      {"RegOpenKeyExW", {10, 8, 10, 12}},
      {"RegQueryValueExW", {2, 0, 1, 0}},
      {"RegQueryValueW", {2, 2, 2, 0}},
      {"RegSetValueExW", {52, 40, 42, 0}},
      {"SHCreateDirectoryExW", {2, 0, 2, 0}},
      {"SHDeleteKeyW", {2, 2, 5, 20}},
      {"SHGetSpecialFolderPathW", {2, 0, 2, 0}},
      {"SHGetValueW", {4, 4, 4, 32}},
      {"SHSetValueW", {2, 2, 2, 0}},
      {"SetErrorMode", {4, 4, 4, 0}},
      {"SizeofResource", {0, 2, 1, 0}},
      {"UpdateResourceW", {12, 0, 6, 0}},
      {"VerSetConditionMask", {12, 8, 10, 0}},
      {"VerifyVersionInfoW", {6, 4, 5, 0}},
      {"WideCharToMultiByte", {8, 4, 6, 0}},
  };
  constexpr const char* works[] = {"first pass", "unchanged pass", "one renamed", "withdrawal"};
  const std::array<Counts, 4> less = Story(2);
  for (const std::size_t count : {std::size_t{4}, std::size_t{20}}) {
    std::array<Counts, 4> more = Story(count);
    for (std::size_t work = 0; work < std::size(works); ++work) {
      SCOPED_TRACE(std::string(works[work]) + " of " + std::to_string(count));
      for (const auto& [function, calls] : less[work]) more[work][function] -= calls;
      for (const auto& [function, calls] : more[work]) {
        const auto found = expected.find(function);
        EXPECT_EQ(calls, found == expected.end() ? 0 : found->second[work] * (count - 2) / 2) << function;
      }
      for (const auto& [function, calls] : expected)
        EXPECT_TRUE(calls[work] == 0 || more[work].contains(function));
    }
  }
}

}  // namespace
