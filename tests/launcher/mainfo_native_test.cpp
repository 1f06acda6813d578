// Launchers with single platform calls failing: what is raised, and what is left.
#include "launcher/mainfo.h"

#include "launcher/fs.h"
#include "support/fault_runs.h"
#include "support/module_fixture.h"

namespace {

class LauncherFaults : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    Share({TestApplication("Chess")});
  }

  std::string Create() {
    return Raised([&] { CreateLauncher(folder(), Info("Chess"), false); });
  }
};

TEST_F(LauncherFaults, CreationStopsAtTheFailureAndLeavesWhatItsStepMade) {
  const struct {
    const char* function;
    std::size_t call;
    const char *raised, *left;
  } cases[] = {
      {"CopyFileW", 1, "mainfo: write to file failed", ""},
      {"BeginUpdateResourceW", 1, "mainfo: BeginUpdateResource() failed", "template "},
      {"UpdateResourceW", 1, "mainfo: resop: UpdateResource(RT_RCDATA) failed", ""},
      {"UpdateResourceW", 2, "mainfo: resop: UpdateResource(RT_RCDATA) failed", ""},
      {"UpdateResourceW", 3, "mainfo: resop: UpdateResource(RT_VERSION) failed", ""},
      {"UpdateResourceW", 4, "mainfo: resop: icon group list is empty", ""},
      {"UpdateResourceW", 5, "mainfo: resop: UpdateResource(RT_GROUP_ICON) failed", ""},
      {"UpdateResourceW", 6, "mainfo: resop: UpdateResource(RT_RCDATA) failed", ""},
      {"EndUpdateResourceW", 1, "mainfo: EndUpdateResource() failed", "template "},
      {"RegOpenCurrentUser", 1, "registry: RegOpenCurrentUser() failed", "launcher "},
      {"RegSetValueExW", 1, "registry_registration: can't register application", "launcher key "},
      {"RegCreateKeyExW", 2, "registry_registration: can't register application", "launcher key "},
      {"SHGetSpecialFolderPathW", 1, "fs: SHGetSpecialFolderPathW() failed", "launcher key "},
      {"CoCreateInstance", 1, "fs: CoCreateInstance() failed", "launcher key "},
      {"IUnknown::QueryInterface", 1, "fs: IShellLink::QueryInterface() failed", "launcher key "},
      {"IUnknown::QueryInterface", 2, "", "launcher key shortcut "},  // as on systems without property stores
      {"IPersistFile::Save", 1, "fs: IPersistFile::Save() failed", "launcher key "}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.function) + " " + std::to_string(c.call));
    EXPECT_EQ(Failing(c.function, c.call, [&] { return Create(); }), c.raised);
    EXPECT_EQ(Parts("Chess"), c.left);
    RemoveLauncherFolders();
    LauncherFolder();
    hive::Drop("HKCU\\Software\\Classes\\Applications\\Chess (Mac).exe");
  }
  gate().Serve([](std::span<const std::byte>) -> host::Reply { throw 42; });
  EXPECT_EQ(Create(), "mainfo: can't update resources");
  EXPECT_EQ(Parts("Chess"), "");
}

TEST_F(LauncherFaults, AnUnreadableIdentifierRemovesTheLauncherAndAnUnloadableFileDoesNot) {
  for (const char* function :
       {"LoadLibraryW", "FindResourceExW", "SizeofResource", "LoadResource", "LockResource"}) {
    EXPECT_EQ(Create(), "");
    EXPECT_FALSE(Failing(function, 1, [&] { return HasValidLauncher(folder(), Info("Chess")); })) << function;
    EXPECT_EQ(Parts("Chess"), function == std::string("LoadLibraryW") ? "launcher key shortcut " : "");
  }
}

}  // namespace
