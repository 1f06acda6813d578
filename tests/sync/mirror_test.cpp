// The guest as it follows the host: passes, the sweep of stale launchers, and the removal of one application.

#include "frame/sharing_state.h"
#include "host/verify.h"
#include "launcher/fs.h"
#include "support/module_fixture.h"
#include "sync/removal.h"
#include "sync/stale_sweep.h"
#include "sync/sync_pass.h"

namespace {

constexpr std::uint32_t getList = 102, getDetails = 104;

class Mirror : public ModuleTest {
 protected:
  std::string Sync() {
    return Raised([this] { SyncHostApplications(folder()); });
  }

  static host::Application Application(const std::string& name, const std::string& type) {
    return TestApplication(name, {type}, {type}, {"x-" + type});
  }

  void PutLauncher(const std::string& fileName) {
    WriteFileAt(folder() + TEXT("\\") + Utf8ToWide(fileName), "x");
  }
};

// A history of lists, and what a model makes of it.
TEST_F(Mirror, FollowsTheHostsLists) {
  host::GuestModel model(host::TakeSnapshot(), host::LookAround());
  const auto check = [&](const char* what) {
    EXPECT_EQ(model.Compare(host::TakeSnapshot()), std::vector<std::string>()) << what;
  };
  const auto on = [&](const char* what, const std::vector<host::Application>& applications) {
    model.On(Share(applications));
    HandleSharingState(true);
    check(what);
  };
  host::Application chess = Application("Chess", "pgn"), go = Application("Go", "sgf");
  on("two", {chess, go});
  const WideString before = Scratch() + TEXT("\\before.exe");
  CopyFileW(Launcher("Chess").c_str(), before.c_str(), FALSE);
  chess.bundleId = "test.other";
  chess.icons = {{.file = "", .size = 32, .bmp = TestBitmap(32, 32)}};
  chess.documentTypes = {"fen"};
  on("a changed one, one new, none gone", {go, chess, Application("Go (Mac)", "igo")});
  EXPECT_EQ(ResourcesOf(Launcher("Chess")), ResourcesOf(before));
  chess.name = "CHESS";
  go.icons.clear();
  on("another letter case, and one without icons that has its launcher", {chess, go});
  DeleteFileW(Launcher("Go").c_str());
  model = host::GuestModel(host::TakeSnapshot(), host::LookAround());
  on("one that cannot be built again", {go, chess});
  for (int run = 0; run < 2; ++run) {
    HandleSharingState(false);
    model.Off();
    check("off");
  }
  on("again", {chess});
  on("none", {});
}

TEST_F(Mirror, ADoubleNameIsBuiltOnce) {
  Share({TestApplication("Chess")});
  ReplyWith(getList, Items()
                         .Text(host::textItem, "test.Chess")
                         .Text(host::textItem, "Chess")
                         .Text(host::textItem, "b")
                         .Text(host::textItem, "Chess")
                         .bytes());
  ReplyWith(getDetails, {});
  EXPECT_EQ(Sync(), "");
  EXPECT_EQ(ResourceData(Launcher("Chess"), 10, 260, 0), host::Utf16Bytes("test.Chess"));
  EXPECT_EQ(gate().Facts().sends, 4u);  // list, icons, details twice
}

TEST_F(Mirror, WithoutAListNothingChanges) {
  Share({Application("Chess", "pgn")});
  EXPECT_EQ(Sync(), "");
  const std::string files = Files(), registry = hive::Text();
  ReplyWith(
      getList,
      Items().Text(host::textItem, "test.Go").Text(host::textItem, "Go").Text(host::textItem, "odd").bytes());
  EXPECT_EQ(Sync(), "mainfo: list format error");
  EXPECT_EQ(Files(), files);
  EXPECT_EQ(hive::Text(), registry);
}

// A launcher is known by its file name alone, of which the last ten characters are cut off whatever they are.
TEST_F(Mirror, TheSweepTakesWhatNoNameCallsFor) {
  for (const char* name :
       {"Chess (Mac).exe", "go (Mac).exe", "Shogi (Mac).EXE", " (Mac).exe", "Go (Mac) (Mac).exe",
        "Calculator.exe", "Calc (Mac).exe", "Notes.exe", "readme.txt", "a (Mac).exe.bak"}) {
    PutLauncher(name);
  }
  CreateDirectoryW((folder() + TEXT("\\Folder (Mac).exe")).c_str(), nullptr);
  for (const char* name : {"Chess", "Calc", "Notes", "Folder", "Go"}) {
    WriteFileAt(ShortcutFolder() + Utf8ToWide(name) + TEXT(" (Mac).lnk"), "x");
  }
  RemoveStaleLaunchers({{{}, TEXT("Go")}, {{}, TEXT("Chess")}, {{}, TEXT("Calc")}, {{}, TEXT("Go")}},
                       folder());
  EXPECT_EQ(Files(),
            "Calculator.exe\nChess (Mac).exe\nChess (Mac).lnk\nFolder (Mac).lnk\nNotes (Mac).lnk\nNotes.exe\n"
            "a (Mac).exe.bak\nreadme.txt\n");
  EXPECT_EQ(Raised([this] { RemoveStaleLaunchers({}, folder() + TEXT("\\none")); }), "");
}

TEST_F(Mirror, QuietRemovalGoesOnAndLoudStopsWhereItFails) {
  const auto nothing = [] {};
  const struct {
    const char* what;
    std::function<void()> before;
    const char *loud, *leftByLoud, *leftByQuiet;
  } cases[] = {{"all there", nothing, "", "", ""},
               {"no shortcut", [] { DeleteFileW(Shortcut("Chess").c_str()); }, "mainfo: DeleteFileW() failed",
                "launcher key ", ""},
               {"no key", [] { hive::Drop("HKCU\\Software\\Classes\\Applications\\Chess (Mac).exe"); },
                "registry_removal: can't unregister application", "launcher ", ""},
               {"no list of applications", [] { hive::Drop(hive::registered); },
                "registry: RegOpenKeyExW() failed", "launcher key ", "key "},
               {"no launcher", [this] { DeleteFileW(Launcher("Chess").c_str()); },
                "mainfo: DeleteFileW() failed", "", ""}};
  Share({Application("Go", "sgf")});
  EXPECT_EQ(Sync(), "");
  Share({Application("Go", "sgf"), TestApplication("Chess")});
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    for (const bool quiet : {false, true}) {
      host::PrepareGuest();
      EXPECT_EQ(Sync(), "");
      c.before();
      bool removed = false;
      EXPECT_EQ(Raised([&] { removed = RemoveHostApplication(TEXT("Chess"), folder() + TEXT("/"), quiet); }),
                quiet ? "" : c.loud);
      EXPECT_EQ(removed, *c.loud == 0);
      EXPECT_EQ(Parts("Chess"), quiet ? c.leftByQuiet : c.leftByLoud);
    }
  }
}

}  // namespace
