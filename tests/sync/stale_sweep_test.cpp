// Which launchers the sweep takes, by their file names alone.
#include "sync/stale_sweep.h"

#include <windows.h>

#include "common/names.h"
#include "launcher/fs.h"
#include "support/module_fixture.h"
#include "support/raised.h"

namespace {

class StaleSweep : public ModuleTest {
 protected:
  void PutLauncher(const WideString& fileName) { WriteFileAt(JoinPath(folder(), fileName), "x"); }

  // Its going shows that `name` was removed.
  static void PutShortcut(const WideString& name) { WriteFileAt(ShortcutPath(FullName(name)), "x"); }
};

TEST_F(StaleSweep, TakesWhatNoNameCallsFor) {
  const struct {
    const char* what;
    std::vector<WideString> listed, launchers;
    std::string left;
  } cases[] = {
      {"nothing there", {TEXT("Chess")}, {}, ""},
      {"all listed",
       {TEXT("Go"), TEXT("Chess"), TEXT("Go")},
       {TEXT("Chess (Mac).exe"), TEXT("Go (Mac).exe")},
       "Chess (Mac).exe\nGo (Mac).exe\n"},
      {"nothing listed", {}, {TEXT("Chess (Mac).exe"), TEXT(" (Mac).exe")}, ""},
      {"other letter case", {TEXT("Chess")}, {TEXT("chess (Mac).exe")}, ""},
      {"other ending's case", {TEXT("Chess")}, {TEXT("Chess (Mac).EXE")}, ""},
      {"foreign files",
       {},
       {TEXT("Notes.exe"), TEXT("Ten567.exe"), TEXT("readme.txt"), TEXT("a (Mac).exe.bak")},
       "Notes.exe\nTen567.exe\na (Mac).exe.bak\nreadme.txt\n"},
      {"a longer name with the suffix inside",
       {TEXT("Go")},
       {TEXT("Go (Mac) (Mac).exe"), TEXT("Go (Mac).exe")},
       "Go (Mac).exe\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    DeletePath(LauncherFolder());
    LauncherFolder();
    for (const WideString& launcher : c.launchers) PutLauncher(launcher);
    MacAppInfoList apps;
    for (const WideString& name : c.listed) apps.push_back({TEXT("id"), name});
    EXPECT_EQ(Raised([&] { RemoveStaleLaunchers(apps, folder()); }), "");
    EXPECT_EQ(Files(), c.left);
  }
}

// The last ten characters are cut off whatever they are.
TEST_F(StaleSweep, AForeignFileCanStandForAnApplication) {
  PutLauncher(TEXT("Calculator.exe"));
  PutLauncher(TEXT("Calc (Mac).exe"));
  PutLauncher(TEXT("Notes.exe"));
  PutShortcut(TEXT("Calc"));
  PutShortcut(TEXT("Notes"));
  RemoveStaleLaunchers({{TEXT("id"), TEXT("Calc")}}, folder());
  EXPECT_EQ(Files(), "Calculator.exe\nNotes (Mac).lnk\nNotes.exe\n");
}

TEST_F(StaleSweep, FoldersAreNoLaunchers) {
  const WideString sub = folder() + TEXT("\\Chess (Mac).exe");
  CreateDirectoryW(sub.c_str(), nullptr);
  PutShortcut(TEXT("Chess"));
  RemoveStaleLaunchers({}, folder());
  EXPECT_EQ(Files(), "Chess (Mac).lnk\n");
  EXPECT_TRUE(FileIsThere(sub));
}

TEST_F(StaleSweep, AMissingFolderIsEmpty) {
  PutShortcut(TEXT("Chess"));
  EXPECT_EQ(Raised([this] { RemoveStaleLaunchers({}, folder() + TEXT("\\none")); }), "");
  EXPECT_EQ(Files(), "Chess (Mac).lnk\n");
}

}  // namespace
