// What applications cost: what one more adds, whatever else the guest holds, and what a pass tells the shell.
#include <platform/control.h>

#include <array>
#include <map>

#include "support/module_fixture.h"
#include "sync/sync_pass.h"
#include "sync/withdrawal.h"

namespace {

using Counts = std::map<std::string, std::size_t>;

class ApplicationCosts : public ModuleTest {
 protected:
  // Every second one is called `name`. Each has five types, of which it is to be the default of one, two
  // schemes, and one icon.
  void ShareSome(std::size_t count, const std::string& name) {
    std::vector<host::Application> applications;
    for (std::size_t i = 0; i < count; ++i) {
      const std::string n = std::to_string(i);
      applications.push_back(TestApplication((i % 2 == 0 ? name : "App ") + n,
                                             {"ta" + n, "tb" + n, "tc" + n, "td" + n, "te" + n}, {"ta" + n},
                                             {"sa" + n, "sb" + n}));
    }
    Share(applications);
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
  // Of two applications: both new, both as they were, one of them under another name, both withdrawn. Every
  // other call is made as often for each two.
  const std::map<std::string, std::array<std::size_t, 4>> expected = {
      {"AssocQueryStringW", {2, 2, 2, 0}}, {"BeginUpdateResourceW", {2, 0, 1, 0}},
      {"CoCreateInstance", {2, 0, 1, 0}},  {"CopyFileW", {2, 0, 1, 0}},
      {"DeleteFileW", {0, 0, 2, 0}},       {"DeviceIoControl", {4, 2, 3, 0}},
      {"FindNextFileW", {0, 2, 2, 0}},     {"GetFileAttributesW", {2, 2, 2, 0}},
      {"LoadLibraryW", {0, 2, 1, 0}},      {"RegCreateKeyExW", {52, 40, 42, 0}},
      {"RegDeleteKeyW", {4, 4, 4, 4}},     {"RegDeleteValueW", {2, 2, 3, 2}},
      {"RegEnumKeyExW", {0, 0, 0, 65}},    {"RegOpenKeyExW", {10, 8, 10, 12}},
      {"RegSetValueExW", {52, 40, 42, 0}}, {"SHDeleteKeyW", {2, 2, 5, 20}},
      {"SHGetValueW", {4, 4, 4, 32}},      {"SHSetValueW", {2, 2, 2, 0}},
      {"UpdateResourceW", {12, 0, 6, 0}}};
  constexpr const char* works[] = {"first pass", "unchanged pass", "one renamed", "withdrawal"};
  std::array<Counts, 4> two = Story(2), four = Story(4), twenty = Story(20);
  for (std::size_t work = 0; work < std::size(works); ++work) {
    SCOPED_TRACE(works[work]);
    for (const auto& [function, calls] : twenty[work]) {
      const std::size_t forTwo = four[work][function] - two[work][function];
      EXPECT_EQ(calls - two[work][function], 9 * forTwo) << function;
    }
    for (const auto& [function, calls] : expected)
      EXPECT_EQ(four[work][function] - two[work][function], calls[work]) << function;
  }
}

// What the shell is told of one pass.
TEST_F(ApplicationCosts, TheShellIsToldOnceAndOnlyOfChanges) {
  host::Application broken = TestApplication("Broken"), chess = TestApplication("Chess");
  broken.icons.clear();
  const std::vector<LONG> none, associationsChanged{0x08000000};
  const struct {
    std::vector<host::Application> applications;
    std::vector<LONG> told;
  } passes[] = {{{broken}, none},
                {{broken, chess}, associationsChanged},
                {{chess, TestApplication("Go"), TestApplication("Igo")}, associationsChanged},
                {{chess, TestApplication("Go"), TestApplication("Igo")}, none},
                {{}, none}};
  for (const auto& pass : passes) {
    Share(pass.applications);
    SyncHostApplications(folder());
    EXPECT_EQ(platform::TakeChangeNotifications(), pass.told);
  }
}

// Nor are offers looked at where there is no launcher.
TEST_F(ApplicationCosts, AForeignClassCostsTheWithdrawalOneQuery) {
  constexpr std::size_t foreign = 50;
  for (std::size_t i = 0; i < foreign; ++i)
    hive::PutText(host::classesKey + "\\Foreign." + std::to_string(i), "", "x (Mac)");
  hive::PutKey(host::classesKey + "\\.txt\\OpenWithList\\notepad.exe");
  Counts counts = CountsOf(WithdrawHostApplications);
  EXPECT_EQ(counts["SHGetValueW"], foreign + 2);  // and the keys of the applications and of the extension
  EXPECT_EQ(counts["RegOpenKeyExW"], 5u);
  EXPECT_EQ(counts["RegEnumKeyExW"], 1 + 3 * (foreign + 3));
}

}  // namespace
