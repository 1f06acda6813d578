// The removal of one application, in both modes.
#include "sync/removal.h"

#include <windows.h>

#include <functional>

#include "common/handles.h"
#include "launcher/fs.h"
#include "registry/registry_registration.h"
#include "support/hive.h"
#include "support/module_fixture.h"
#include "support/raised.h"

namespace {

const std::string appKey = "HKCU\\Software\\Classes\\Applications\\Chess (Mac).exe";

class ApplicationRemoval : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    Share({TestApplication("Chess"), TestApplication("Draughts")});
  }

  void Build(const std::string& name) { RegisterHostApplication(folder(), Info(name), true); }
  std::string Left() const { return Files() + (hive::Has(appKey) ? "key" : ""); }

  // "true", "false" or what is raised.
  std::string Remove(bool quiet, const WideString& from) {
    std::string result;
    const std::string raised =
        Raised([&] { result = RemoveHostApplication(TEXT("Chess"), from, quiet) ? "true" : "false"; });
    return raised.empty() ? result : raised;
  }
};

TEST_F(ApplicationRemoval, TakesAllThreeAndNothingOfOthers) {
  Build("Draughts");
  const std::string files = Files(), registry = hive::Text();
  for (const bool quiet : {true, false}) {
    for (const WCHAR* separator : {TEXT(""), TEXT("\\"), TEXT("/")}) {
      Build("Chess");
      EXPECT_EQ(Remove(quiet, folder() + separator), "true");
      EXPECT_EQ(Files(), files);
      EXPECT_EQ(hive::Text(), registry);
    }
  }
}

TEST_F(ApplicationRemoval, QuietGoesOnAndLoudStopsWhereItFails) {
  const struct {
    const char* what;
    std::function<void()> before;
    const char *loud, *leftByLoud, *leftByQuiet;
  } cases[] = {
      {"no shortcut", [] { DeleteFileW(Shortcut("Chess").c_str()); }, "mainfo: DeleteFileW() failed",
       "Chess (Mac).exe\nkey", ""},
      {"no registration", [] { hive::Drop(appKey); }, "registry_removal: can't unregister application",
       "Chess (Mac).exe\n", ""},
      {"no list of applications", [] { hive::Drop("HKCU\\Software\\RegisteredApplications"); },
       "registry: RegOpenKeyExW() failed", "Chess (Mac).exe\nkey", "key"},
      {"no launcher", [this] { DeleteFileW(Launcher("Chess").c_str()); }, "mainfo: DeleteFileW() failed", "",
       ""},
      {"nothing at all",
       [this] {
         RemoveHostApplication(TEXT("Chess"), folder(), true);
         DeletePath(ShortcutFolder());
       },
       "mainfo: DeleteFileW() failed", "", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    for (const bool quiet : {false, true}) {
      InstallTools();
      Build("Chess");
      c.before();
      EXPECT_EQ(Remove(quiet, folder()), quiet ? "false" : c.loud);
      EXPECT_EQ(Left(), quiet ? c.leftByQuiet : c.leftByLoud);
      EXPECT_TRUE(FileIsThere(ShortcutFolder()));
    }
  }
}

TEST_F(ApplicationRemoval, ALauncherInUseStaysForTheNextTime) {
  Build("Chess");
  {
    const UniqueFile running(CreateFileW(Launcher("Chess").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                         OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    EXPECT_EQ(Remove(true, folder()), "false");
    EXPECT_EQ(Left(), "Chess (Mac).exe\n");
  }
  EXPECT_EQ(Remove(true, folder()), "false");  // shortcut and registration are gone already
  EXPECT_EQ(Left(), "");
}

}  // namespace
