// The four sweeps of the withdrawal: what is found by its marks goes, and what only looks like it stays.
#include "sync/withdrawal.h"

#include <windows.h>

#include "frame/sharing_state.h"
#include "host/guest_view.h"
#include "launcher/fs.h"
#include "support/hive.h"
#include "support/module_fixture.h"
#include "support/raised.h"
#include "sync/sync_pass.h"

namespace {

const std::string classes = "HKCU\\Software\\Classes\\";
const std::string applications = "HKCU\\Software\\Classes\\Applications\\";
const std::string registered = "HKCU\\Software\\RegisteredApplications";
const std::string command = "\\shell\\open\\command";

class Withdrawal : public ModuleTest {
 protected:
  static std::string Withdraw() { return Raised(WithdrawHostApplications); }

  // A launcher's open command in `folder`.
  static std::string CommandIn(const std::string& folder) {
    return "\"" + folder + "\\Chess (Mac).exe\" \"%1\"";
  }
};

TEST_F(Withdrawal, LeavesOfRegisteredApplicationsWhatOthersMayUse) {
  host::Application chess = TestApplication("Chess");
  chess.documentTypes = {"pgn"};
  chess.defaultTypes = {"pgn"};
  chess.urlSchemes = {"chess"};
  Share({chess, TestApplication("Go")});
  ASSERT_EQ(Raised([this] { SyncHostApplications(folder()); }), "");
  const std::string files = Files();
  for (int run = 0; run < 2; ++run) {
    EXPECT_EQ(Withdraw(), "");
    EXPECT_EQ(hive::Text(),
              "[Software\\Classes]\n[Software\\Classes\\.pgn]\n[Software\\Classes\\.pgn\\OpenWithList]\n"
              "[Software\\Classes\\.pgn\\OpenWithProgids]\n\"pgn_auto_file\"=REG_NONE, 0 bytes\n"
              "[Software\\Classes\\Applications]\n[Software\\RegisteredApplications]\n[SOFTWARE\\Tessarine]\n"
              "[SOFTWARE\\Tessarine\\Tessarine Tools]\n[SOFTWARE\\Tessarine\\Tessarine Tools\\MacApps]\n");
    EXPECT_EQ(Files(), files);
  }
}

TEST_F(Withdrawal, ApplicationKeysGoByTheEndOfTheirNames) {
  const struct {
    const char* name;
    bool goes;
  } cases[] = {{"Chess (Mac).exe", true}, {" (Mac).exe", true},
               {"Go (mac).exe", false},   {"Shogi (Mac).EXE", false},
               {"(Mac).exe", false},      {"Go (Mac).exe.old", false},
               {"Go (Mac) 2.exe", false}, {"Igo \xC3\xA9 (Mac).exe", true}};
  for (const auto& c : cases) {
    hive::PutText(applications + c.name + command, "", "x");
    hive::PutText(registered, std::string(c.name).substr(0, std::string(c.name).size() - 4), "x");
  }
  EXPECT_EQ(Withdraw(), "");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(hive::Has(applications + c.name), !c.goes);
    const std::string app = std::string(c.name).substr(0, std::string(c.name).size() - 4);
    EXPECT_EQ(hive::Value(registered, app) == "none", c.goes);
  }
}

TEST_F(Withdrawal, UrlProtocolsGoByTheirDescription) {
  const struct {
    const char* key;
    const char* description;  // null: none
    DWORD protocol;           // type of "URL Protocol", REG_NONE: without
    const char* subkey;
    bool goes;
  } cases[] = {
      {"made", "URL:made (Mac)", REG_SZ, "", true},
      {"suffix", " (Mac)", REG_SZ, "", true},
      {"shorter", "(Mac)", REG_SZ, "", false},
      {"case", "URL:case (mac)", REG_SZ, "", false},
      {"longer", "URL:longer (Mac) ", REG_SZ, "", false},
      {"undescribed", nullptr, REG_SZ, "", false},
      {"noprotocol", "URL:noprotocol (Mac)", REG_NONE, "", false},
      {"binary", "URL:binary (Mac)", REG_BINARY, "", false},
      {"parent", "URL:parent (Mac)", REG_SZ, "\\shell", false},
      {"valued", "URL:valued (Mac)", REG_SZ, "", true},
  };
  for (const auto& c : cases) {
    hive::PutKey(classes + c.key + c.subkey);
    if (c.description != nullptr) hive::PutText(classes + c.key, "", c.description);
    if (c.protocol != REG_NONE) hive::PutData(classes + c.key, "URL Protocol", c.protocol, {"\0", 2});
  }
  hive::PutText(classes + "valued", "other", "x");
  hive::PutData(classes + "number", "", REG_DWORD, "wxyz");
  hive::PutText(classes + "number", "URL Protocol", "");
  EXPECT_EQ(Withdraw(), "");
  for (const auto& c : cases) EXPECT_EQ(hive::Has(classes + c.key), !c.goes) << c.key;
  EXPECT_TRUE(hive::Has(classes + "number"));
}

TEST_F(Withdrawal, AutoFileProgIdsGoByTheirCommand) {
  const std::string folder = host::LauncherFolder();
  std::string otherCase = folder;
  otherCase.back() = 'S';
  const struct {
    const char* key;
    std::string command;
    bool goes;
  } cases[] = {
      {"txt_auto_file", CommandIn(folder), true},
      {"sub.key_auto_file", "x" + folder, true},  // the first character is not looked at
      {"deep_auto_file", CommandIn(folder + "\\sub"), true},
      {"sibling_auto_file", CommandIn(folder + " 2"), true},
      {"folder_auto_file", folder, false},
      {"short_auto_file", "\"" + folder.substr(0, folder.size() - 1), false},
      {"case_auto_file", CommandIn(otherCase), false},
      {"other_auto_file", CommandIn("C:\\Program Files"), false},
      {"empty_auto_file", "", false},
      {"_auto_file", CommandIn(folder), false},
      {"rtf_Auto_file", CommandIn(folder), false},
      {"txt_auto_file2", CommandIn(folder), false},
  };
  for (const auto& c : cases) hive::PutText(classes + c.key + command, "", c.command);
  hive::PutKey(classes + "none_auto_file");
  hive::PutData(classes + "number_auto_file" + command, "", REG_DWORD, "wxyz");
  EXPECT_EQ(Withdraw(), "");
  for (const auto& c : cases) {
    EXPECT_EQ(hive::Has(classes + c.key), !c.goes) << c.key;
  }
  EXPECT_TRUE(hive::Has(classes + "none_auto_file"));
  EXPECT_TRUE(hive::Has(classes + "number_auto_file" + command));
}

TEST_F(Withdrawal, ExtensionsLoseLauncherOffersAndDeadDefaults) {
  hive::PutKey(applications + "Chess (Mac).exe");
  hive::PutKey(applications + "notepad.exe");
  hive::PutText(classes + "txt_auto_file" + command, "", CommandIn(host::LauncherFolder()));
  hive::PutText(classes + "doc_auto_file" + command, "", CommandIn("C:\\Program Files"));
  const struct {
    const char* key;
    const char* byDefault;  // null: none
    bool offers;
    const char *leftDefault, *leftOffers;
  } cases[] = {
      {".txt", "txt_auto_file", true, "\"\"", "none \"kept\""},
      {".bare", "txt_auto_file", false, "\"txt_auto_file\"", "none none"},
      {".case", "TXT_auto_file", true, "\"TXT_auto_file\"", "none \"kept\""},
      {".long", "txt_auto_file2", true, "\"txt_auto_file2\"", "none \"kept\""},
      {".doc", "doc_auto_file", true, "\"doc_auto_file\"", "none \"kept\""},
      {".none", nullptr, true, "none", "none \"kept\""},
      {"nodot", "txt_auto_file", true, "\"txt_auto_file\"", "\"x\" \"kept\""},
  };
  for (const auto& c : cases) {
    hive::PutText(classes + c.key, "other", "x");
    if (c.byDefault != nullptr) hive::PutText(classes + c.key, "", c.byDefault);
    if (!c.offers) continue;
    hive::PutText(classes + c.key + "\\OpenWithList\\Chess (Mac).exe\\deep", "", "x");
    hive::PutText(classes + c.key + "\\OpenWithList\\Chess (Mac).exe", "", "x");
    hive::PutText(classes + c.key + "\\OpenWithList\\notepad.exe", "", "kept");
  }
  EXPECT_EQ(Withdraw(), "");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.key);
    EXPECT_EQ(hive::Value(classes + c.key, ""), c.leftDefault);
    EXPECT_EQ(hive::Value(classes + c.key, "other"), "\"x\"");
    const std::string list = classes + c.key + "\\OpenWithList\\";
    EXPECT_EQ(hive::Value(list + "Chess (Mac).exe", "") + " " + hive::Value(list + "notepad.exe", ""),
              c.leftOffers);
  }
}

TEST_F(Withdrawal, AMissingKeyEndsItWithTheSweepThatNeedsIt) {
  hive::PutText(classes + "chess", "", "URL:chess (Mac)");
  hive::PutText(classes + "chess", "URL Protocol", "");
  hive::PutText(classes + "pgn_auto_file" + command, "", CommandIn(host::LauncherFolder()));
  hive::Drop("HKCU\\Software\\Classes\\Applications");
  WriteFileAt(Launcher("Chess"), "x");
  const std::string before = hive::Text();
  EXPECT_EQ(Withdraw(), "registry: RegOpenKeyExW() failed");
  HandleSharingState(false);  // and so the folders stay
  EXPECT_EQ(hive::Text(), before);
  EXPECT_EQ(Files(), "Chess (Mac).exe\n");
  hive::PutKey("HKCU\\Software\\Classes\\Applications");
  HandleSharingState(false);
  EXPECT_FALSE(hive::Has(classes + "chess"));
  EXPECT_FALSE(hive::Has(classes + "pgn_auto_file"));
  EXPECT_FALSE(FileIsThere(folder()));
}

TEST_F(Withdrawal, EntriesWithoutTheirApplicationKeyStay) {
  hive::PutText(
      "HKCU\\Software\\Tessarine\\Tessarine Tools\\MacApps\\Chess (Mac)\\Capabilities\\URLAssociations", "x",
      "x");
  hive::PutText(registered, "Chess (Mac)", "x");
  hive::PutText(classes + "Tsrn.Url.Chess (Mac)" + command, "", "x");
  hive::PutText(classes + ".pgn\\OpenWithList\\Chess (Mac).exe", "", "Chess (Mac).exe");
  const std::string before = hive::Text();
  EXPECT_EQ(Withdraw(), "");
  EXPECT_EQ(hive::Text(), before);
}

}  // namespace
