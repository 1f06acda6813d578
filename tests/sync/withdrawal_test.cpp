// The four sweeps of the withdrawal: what is found by its marks goes, and what only looks like it stays.
#include "sync/withdrawal.h"

#include "frame/sharing_state.h"
#include "support/module_fixture.h"

namespace {

const std::string command = "\\shell\\open\\command";

class Withdrawal : public ModuleTest {
 protected:
  // One entry for a sweep, which goes or stays.
  void Application(const std::string& name, bool goes) {
    hive::PutText(hive::applications + name + command, "", "x");
    Expect(hive::applications + name, goes);
  }
  void Scheme(const std::string& name, const std::string& description, bool goes) {
    hive::PutText(hive::classes + name, "", description);
    hive::PutText(hive::classes + name, "URL Protocol", "");
    Expect(hive::classes + name, goes);
  }
  void Claim(const std::string& progId, const std::string& path, bool goes) {
    hive::PutText(hive::classes + progId + command, "", path);
    Expect(hive::classes + progId, goes);
  }
  void Expect(const std::string& key, bool goes) { goes_[key] = goes; }

  void Withdraw() {
    EXPECT_EQ(Raised(WithdrawHostApplications), "");
    for (const auto& [key, goes] : goes_) EXPECT_EQ(!hive::Has(key), goes) << key;
  }

  // How a command of a launcher begins.
  static std::string Launchers() { return "\"" + host::LauncherFolder(); }

 private:
  std::map<std::string, bool> goes_;
};

TEST_F(Withdrawal, ApplicationsGoByTheEndOfTheirNames) {
  for (const char* name : {" (Mac).exe", "Igo \xC3\xA9 (Mac).exe", "Zen (Mac).exe"}) Application(name, true);
  for (const char* name : {"(Mac).exe", "Go (mac).exe", "Go (Mac).EXE", "Go (Mac).exe.old", "Go (Mac) 2.exe"})
    Application(name, false);
  for (const char* app : {"Igo \xC3\xA9 (Mac)", "Gone (Mac)"}) {
    hive::PutText(hive::registered, app, "x");
    hive::PutText(hive::classes + "Tsrn.Url." + app + command, "", "x");
  }
  Expect(hive::classes + "Tsrn.Url.Igo \xC3\xA9 (Mac)", true);
  Expect(hive::classes + "Tsrn.Url.Gone (Mac)", false);
  Withdraw();
  EXPECT_EQ(hive::Value(hive::registered, "Igo \xC3\xA9 (Mac)") + hive::Value(hive::registered, "Gone (Mac)"),
            "none\"x\"");
  hive::Drop(hive::registered);  // an application's own failure: the next one goes all the same
  for (const char* name : {"Igo \xC3\xA9 (Mac).exe", "Zen (Mac).exe"}) Application(name, true);
  Withdraw();
}

TEST_F(Withdrawal, SchemesGoByTheirDescriptionAndClaimsByTheirCommand) {
  Scheme("made", "URL:made (Mac)", true);
  Scheme("suffix", " (Mac)", true);
  Scheme("shorter", "(Mac)", false);
  Scheme("case", "URL:case (mac)", false);
  Scheme("longer", "URL:longer (Mac) ", false);
  Scheme("parent", "URL:parent (Mac)", false);
  hive::PutKey(hive::classes + "parent\\shell");
  Scheme("number", "", false);
  hive::PutData(hive::classes + "number", "", REG_DWORD, "wxyz");
  Scheme("undeclared", "URL:undeclared (Mac)", false);
  hive::PutData(hive::classes + "undeclared", "URL Protocol", REG_BINARY, "x");
  Scheme("valued", "URL:valued (Mac)", true);
  hive::PutText(hive::classes + "valued", "other", "x");

  Claim("txt_auto_file", Launchers() + "\\Chess (Mac).exe\" \"%1\"", true);
  Claim("a_auto_file", "x" + Launchers().substr(1), true);  // the first character is not looked at
  Claim("sibling_auto_file", Launchers() + " 2", true);
  Claim("folder_auto_file", Launchers().substr(1), false);
  Claim("short_auto_file", Launchers().substr(0, Launchers().size() - 1), false);
  Claim("case_auto_file", Launchers().substr(0, Launchers().size() - 1) + "S", false);
  Claim("empty_auto_file", "", false);
  Claim("number_auto_file", "", false);
  hive::PutData(hive::classes + "number_auto_file" + command, "", REG_DWORD, "wxyz");
  for (const char* progId : {"_auto_file", "rtf_Auto_file", "txt_auto_file2"})
    Claim(progId, Launchers() + "\\Chess (Mac).exe\" \"%1\"", false);
  Withdraw();
}

TEST_F(Withdrawal, ExtensionsLoseLauncherOffersAndDeadDefaults) {
  Application("Chess (Mac).exe", true);
  Application("notepad.exe", false);
  Claim("txt_auto_file", Launchers() + "\\", true);
  Claim("doc_auto_file", "C:\\Program Files", false);
  const struct {
    std::string key;
    const char* byDefault;
    bool offers;
    const char* left;
  } cases[] = {{hive::classes + ".txt", "txt_auto_file", true, "\"\""},
               {hive::classes + ".bare", "txt_auto_file", false, "\"txt_auto_file\""},
               {hive::classes + ".case", "TXT_auto_file", true, "\"TXT_auto_file\""},
               {hive::classes + ".long", "txt_auto_file2", true, "\"txt_auto_file2\""},
               {hive::classes + ".doc", "doc_auto_file", true, "\"doc_auto_file\""},
               {hive::classes + "nodot", "txt_auto_file", true, "\"txt_auto_file\""}};
  for (const auto& c : cases) {
    hive::PutText(c.key, "", c.byDefault);
    hive::PutText(c.key, "other", "x");
    if (!c.offers) continue;
    hive::PutKey(c.key + "\\OpenWithList\\Chess (Mac).exe\\deep");
    hive::PutKey(c.key + "\\OpenWithList\\notepad.exe");
    Expect(c.key + "\\OpenWithList\\Chess (Mac).exe", c.key != hive::classes + "nodot");
    Expect(c.key + "\\OpenWithList\\notepad.exe", false);
  }
  const std::string bytes = hive::classes + ".bytes";  // no text, whatever they spell
  hive::PutData(bytes, "", REG_BINARY, host::Utf16Bytes("txt_auto_file"));
  hive::PutKey(bytes + "\\OpenWithList");
  Withdraw();
  EXPECT_EQ(hive::Value(bytes, ""), "type 3, 28 bytes");
  for (const auto& c : cases) {
    EXPECT_EQ(hive::Value(c.key, "") + hive::Value(c.key, "other"), c.left + std::string("\"x\"")) << c.key;
  }
}

// Foreign names as long as names can be end no sweep.
TEST_F(Withdrawal, TheLongestNamesArePassedOver) {
  const std::string longest(255, 'a');
  for (const std::string& key :
       {hive::classes + longest, hive::classes + "." + longest.substr(1), hive::applications + longest}) {
    hive::PutKey(key);
    Expect(key, false);
  }
  Application("Chess (Mac).exe", true);
  Scheme("chess", "URL:chess (Mac)", true);
  Claim("pgn_auto_file", Launchers() + "\\", true);
  hive::PutKey(hive::classes + ".pgn\\OpenWithList\\Chess (Mac).exe");
  Expect(hive::classes + ".pgn\\OpenWithList\\Chess (Mac).exe", true);
  Withdraw();
}

TEST_F(Withdrawal, WithoutApplicationKeysNothingGoes) {
  Scheme("chess", "URL:chess (Mac)", false);
  Claim("pgn_auto_file", Launchers() + "\\", false);
  hive::Drop(hive::classes + "Applications");
  WriteFileAt(Launcher("Chess"), "x");
  const std::string before = hive::Text();
  EXPECT_EQ(Raised(WithdrawHostApplications), "registry: RegOpenKeyExW() failed");
  HandleSharingState(false);  // and so the folders stay
  EXPECT_EQ(hive::Text(), before);
  EXPECT_EQ(Files(), "Chess (Mac).exe\n");
}

}  // namespace
