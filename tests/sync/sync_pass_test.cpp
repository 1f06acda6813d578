// The pass as a whole: what the guest holds after the host's list has changed or could not be had.
#include "sync/sync_pass.h"

#include <windows.h>

#include "support/hive.h"
#include "support/module_fixture.h"
#include "support/raised.h"

namespace {

constexpr std::uint32_t getList = 102, getDetails = 104;
constexpr std::uint32_t text = 3;

class SyncPass : public ModuleTest {
 protected:
  std::string Sync() {
    return Raised([this] { SyncHostApplications(folder()); });
  }

  static host::Application Application(const std::string& name, const std::string& type) {
    host::Application application = TestApplication(name);
    application.documentTypes = {type};
    application.urlSchemes = {"x-" + type};
    return application;
  }
};

TEST_F(SyncPass, FollowsTheHostsList) {
  Share({Application("Chess", "pgn"), Application("Go", "sgf")});
  EXPECT_EQ(Sync(), "");
  EXPECT_EQ(Files(), "Chess (Mac).exe\nChess (Mac).lnk\nGo (Mac).exe\nGo (Mac).lnk\n");
  Share({Application("Go", "sgf"), Application("Igo", "sgf2")});
  EXPECT_EQ(Sync(), "");
  EXPECT_EQ(Files(), "Go (Mac).exe\nGo (Mac).lnk\nIgo (Mac).exe\nIgo (Mac).lnk\n");
  EXPECT_FALSE(hive::Has("HKCU\\Software\\Classes\\Applications\\Chess (Mac).exe"));
  Share({});
  EXPECT_EQ(Sync(), "");
  EXPECT_EQ(Files(), "");
  EXPECT_FALSE(hive::Has("HKCU\\Software\\Classes\\Tsrn.Url.Go (Mac)"));
}

TEST_F(SyncPass, ARenamedApplicationIsBuiltUnderItsNewName) {
  host::Application chess = Application("Chess", "pgn");
  Share({chess});
  EXPECT_EQ(Sync(), "");
  for (const char* name : {"Schach", "SCHACH"}) {  // the second differs in letter case alone
    chess.name = name;
    Share({chess});
    EXPECT_EQ(Sync(), "");
    EXPECT_EQ(Files(), std::string(name) + " (Mac).exe\n" + name + " (Mac).lnk\n");
    EXPECT_EQ(ResourceData(Launcher(name), 10, 259, 0), host::Utf16Bytes(name));
    EXPECT_TRUE(hive::Has(std::string("HKCU\\Software\\Classes\\Tsrn.Url.") + name + " (Mac)"));
  }
  EXPECT_FALSE(hive::Has("HKCU\\Software\\Classes\\Tsrn.Url.Chess (Mac)"));
}

TEST_F(SyncPass, AChangedIdentifierOrIconKeepsTheLauncher) {
  host::Application chess = Application("Chess", "pgn");
  Share({chess});
  EXPECT_EQ(Sync(), "");
  const WideString before = Scratch() + TEXT("\\before.exe");
  CopyFileW(Launcher("Chess").c_str(), before.c_str(), FALSE);
  chess.bundleId = "test.other";
  chess.icons[0].bmp = TestBitmap(32, 32);
  chess.documentTypes = {"fen"};
  Share({chess});
  EXPECT_EQ(Sync(), "");
  EXPECT_EQ(ResourceChanges(Launcher("Chess"), before), "");
  EXPECT_EQ(hive::Value("HKCU\\Software\\Classes\\Applications\\Chess (Mac).exe\\SupportedTypes", ".fen"),
            "\"\"");
}

TEST_F(SyncPass, AnApplicationThatFailsIsRemovedAndTheOthersGoOn) {
  host::Application go = Application("Go", "sgf");
  Share({Application("Chess", "pgn"), go, Application("Shogi", "kif")});
  EXPECT_EQ(Sync(), "");
  DeleteFileW(Launcher("Go").c_str());
  go.icons.clear();
  Share({Application("Chess", "pgn"), go, Application("Shogi", "kif")});
  EXPECT_EQ(Sync(), "");
  EXPECT_EQ(Files(), "Chess (Mac).exe\nChess (Mac).lnk\nShogi (Mac).exe\nShogi (Mac).lnk\n");
  EXPECT_FALSE(hive::Has("HKCU\\Software\\Classes\\Applications\\Go (Mac).exe"));
  EXPECT_EQ(hive::Value("HKCU\\Software\\RegisteredApplications", "Go (Mac)"), "none");
}

TEST_F(SyncPass, ADoubleNameIsBuiltOnce) {
  ReplyWith(getList,
            Items().Text(text, "test.Chess").Text(text, "Chess").Text(text, "b").Text(text, "Chess").bytes());
  ReplyWith(getDetails, {});
  Share({TestApplication("Chess")});
  EXPECT_EQ(Sync(), "");
  EXPECT_EQ(Files(), "Chess (Mac).exe\nChess (Mac).lnk\n");
  EXPECT_EQ(ResourceData(Launcher("Chess"), 10, 260, 0), host::Utf16Bytes("test.Chess"));
  EXPECT_EQ(gate().Facts().sends, 4u);  // list, icons, details twice
}

TEST_F(SyncPass, WithoutAListNothingChanges) {
  Share({Application("Chess", "pgn")});
  EXPECT_EQ(Sync(), "");
  const std::string files = Files(), registry = hive::Text();
  ReplyWith(getList, Items().Text(text, "test.Go").Text(text, "Go").Text(text, "odd").bytes());
  EXPECT_EQ(Sync(), "mainfo: list format error");
  gate().FailNext({.request = host::sendCommand, .systemError = ERROR_GEN_FAILURE});
  EXPECT_EQ(Sync(), "mainfo: ioctl() returned no data");
  gate().SetPresent(false);
  EXPECT_EQ(Sync(), "dtool: Can't open tool device driver");
  EXPECT_EQ(Files(), files);
  EXPECT_EQ(hive::Text(), registry);
}

}  // namespace
