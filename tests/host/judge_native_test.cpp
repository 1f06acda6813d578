// The judge is known by what it convicts: of each kind of thing that a guest holds, just that is made wrong.
#include "host/judge.h"

#include <sstream>

#include "frame/sharing_state.h"
#include "launcher/fs.h"
#include "support/fault_runs.h"
#include "support/module_fixture.h"

namespace {

const std::string classes = "HKCU\\Software\\Classes\\", chessKey = classes + "Applications\\Chess (Mac).exe",
                  tools = "HKCU\\SOFTWARE\\Tessarine\\Tessarine Tools",
                  capabilities = tools + "\\MacApps\\Chess (Mac)",
                  registered = "HKCU\\Software\\RegisteredApplications";

const char* linkText = "Tessarine Shared Application shortcut";

class JudgeTest : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    host::Application chess = TestApplication("Chess", {"pgn", "fen"}, {"pgn"}, {"chess"});
    chess.icons.push_back({"24.png", 24, true, TestBitmap(24, 24)});
    apps_ = {chess, TestApplication("Go")};
  }

  // A guest that has just mirrored both applications and nothing else.
  void Mirror() {
    HandleSharingState(false);
    for (const char* key : {".pgn", ".fen", "chess", "pgn_auto_file"}) hive::Drop(classes + key);
    catalogue_ = Share(apps_);
    HandleSharingState(true);
  }

  // All findings, one line each, the summing up left out.
  std::string Findings(bool sharing = true) const {
    std::ostringstream out;
    host::PrintFindings(out, Judge(host::TakeSnapshot(), catalogue_, sharing));
    const std::string text = out.str();
    return text.substr(0, text.rfind('\n', text.size() - 2) + 1);
  }

  std::vector<host::Application> apps_;
  host::Catalogue catalogue_;
};

TEST_F(JudgeTest, ConvictsWhatIsWrongAlone) {
  const std::string command = "\"\"" + WideToUtf8(Launcher("Chess")) + "\" \"%1\"\"";
  const auto drop = [](const std::string& key) { return [key] { hive::Drop(key); }; };
  const auto putKey = [](const std::string& path) { return [path] { hive::PutKey(path); }; };
  const auto putText = [](const std::string& key, const char* value, const char* data) {
    return [=] { hive::PutText(key, value, data); };
  };
  const auto erase = [](const WideString& file) { return [file] { DeleteFileW(file.c_str()); }; };
  const auto resource = [&](WORD name, const std::string& data) {
    return [=, this] { PutResource(Launcher("Chess"), 10, name, 0, data); };
  };
  // Another text of the same length in the version information.
  const auto version = [&](const std::string& from, const std::string& to) {
    return [=, this] {
      const auto units = [](const std::string& text) {
        return host::Utf16Bytes(text).substr(0, 2 * text.size());
      };
      std::string data = ResourceData(Launcher("Chess"), 16, 1, 0x0400);
      data.replace(data.find(units(from)), 2 * from.size(), units(to));
      PutResource(Launcher("Chess"), 16, 1, 0x0400, data);
    };
  };
  const auto link = [&](const WideString& target, const char* description) {
    return [=, this] { CreateShortcut(target, Shortcut("Chess"), Utf8ToWide(description)); };
  };
  const auto copy = [](const WideString& from, const WideString& to) {
    return [=] { CopyFileW(from.c_str(), to.c_str(), TRUE); };
  };
  const auto spoilPixels = [&] {
    std::string image = ResourceData(Launcher("Chess"), 3, 450, 0x0400);
    image[40 + 4 * 25] ^= 1;
    image[40 + 4 * 77 + 3] ^= 1;
    PutResource(Launcher("Chess"), 3, 450, 0x0400, image);
  };
  const auto shortenIcons = [&] {
    PutResource(Launcher("Chess"), 14, 448, 0x0400,
                ResourceData(Launcher("Chess"), 14, 448, 0x0400).substr(0, 20));
  };
  const struct {
    std::function<void()> harm;
    std::string found;  // of the application
    const char* application = "Chess";
  } cases[] = {
      {[] {}, ""},
      {erase(Launcher("Chess")), "the launcher is missing"},
      {[&] { WriteFileAt(Launcher("Chess"), "MZ"); }, "the launcher carries no identity"},
      {resource(260, host::Utf16Bytes("")), "the launcher carries no identity"},
      {resource(259, host::Utf16Bytes("Chest")), "the launcher carries the name \"Chest\""},
      {resource(57005, ""), "the launcher's last resource, its marker, is not there"},
      {version("Chess (Mac)", "Chest (Mac)"),
       "the launcher's version information, FileDescription: \"Chest (Mac)\" instead of \"Chess (Mac)\""},
      {version("Comments", "Comment5"),
       "the launcher's version information, Comment5: \"Tessarine Shared Application\" instead of nothing\n"
       "Chess: the launcher's version information, Comments: nothing instead of \"Tessarine Shared "
       "Application\""},
      {spoilPixels, "the launcher's icon of 24 pixels differs from the catalogue's in 2 pixels"},
      {[&] { PutResource(Launcher("Chess"), 3, 449, 0x0400, ""); },
       "the launcher's icon of 16 pixels is not the catalogue's"},
      {shortenIcons, "the launcher lacks the icon of 24 pixels"},
      {erase(Shortcut("Chess")), "the shortcut is missing"},
      {[&] { WriteFileAt(Shortcut("Chess"), "junk"); }, "the shortcut is no shell link"},
      {link(Launcher("Chest"), linkText), "the shortcut leads to \"" + WideToUtf8(Launcher("Chest")) + "\""},
      {link(Launcher("?hess"), linkText), "the shortcut leads to \"" + WideToUtf8(Launcher("?hess")) + "\""},
      {link(Launcher("Chess"), "A game"), "the shortcut's description is \"A game\""},
      {[&] { Failing("IUnknown::QueryInterface", 2, link(Launcher("Chess"), linkText)); },
       "the shortcut does not say that it is not to be pinned\n"
       "Chess: the shortcut does not say that it is not to be announced as new"},
      {drop(chessKey), "the application key is missing"},
      {putText(chessKey + "\\shell\\open\\command", "", "x"),
       "the command that opens files: \"x\" instead of " + command},
      {putText(chessKey, "NoOpenWith", ""), "the mark NoOpenWith is there"},
      {drop(chessKey + "\\SupportedTypes"), "the supported types is missing"},
      {putText(chessKey + "\\SupportedTypes", ".x", ""), "the supported type .x is there"},
      {putText(chessKey + "\\SupportedProtocols", "x", ""), "the supported scheme x is there"},
      {drop(classes + ".fen\\OpenWithList\\Chess (Mac).exe"), "the offer for .fen is missing"},
      {putText(classes + ".fen\\OpenWithList\\Chess (Mac).exe", "", "x"),
       "the offer for .fen: \"x\" instead of \"Chess (Mac).exe\""},
      {drop(classes + ".pgn\\OpenWithProgids"), "the claim of .pgn is missing"},
      {putText(classes + ".pgn\\OpenWithProgids", "pgn_auto_file", ""),
       "the claim of .pgn: \"\" instead of REG_NONE, 0 bytes"},
      {drop(classes + "pgn_auto_file"), "the program that claims .pgn is missing"},
      {putText(classes + "pgn_auto_file\\shell\\open\\command", "", "x"),
       "the program that claims .pgn: \"x\" instead of " + command},
      {drop(classes + "Tsrn.Url.Chess (Mac)"), "the command that opens addresses is missing"},
      {drop(capabilities), "the set of capabilities is missing"},
      {putText(capabilities + "\\Capabilities\\URLAssociations", "x", "Tsrn.Url.Chess (Mac)"),
       "the capability for the scheme x is there"},
      {putText(registered, "Chess (Mac)", "x"),
       "the entry among the registered applications: \"x\" instead of \"SOFTWARE\\Tessarine\\Tessarine "
       "Tools\\MacApps\\Chess (Mac)\\Capabilities\""},
      {drop(classes + "chess"), "the declaration of the scheme chess is missing"},
      {drop(tools + "\\MacApps"), "the set of capabilities is missing"},
      // Of an application that is not listed.
      {copy(Launcher("Go"), Launcher("Old")), "the launcher is there", "Old"},
      {copy(Shortcut("Go"), Shortcut("Old")), "the shortcut is there", "Old"},
      {putKey(classes + "Applications\\Old (Mac).exe"), "the application key is there", "Old"},
      {putKey(classes + "Tsrn.Url.Old (Mac)"), "the command that opens addresses is there", "Old"},
      {putKey(tools + "\\MacApps\\Old (Mac)"), "the set of capabilities is there", "Old"},
      {putText(registered, "Old (Mac)", ""), "the entry among the registered applications is there", "Old"}};
  for (const auto& each : cases) {
    Mirror();
    each.harm();
    EXPECT_EQ(Findings(), each.found.empty() ? "" : each.application + (": " + each.found) + "\n");
    for (const char* old : {"Applications\\Old (Mac).exe", "Tsrn.Url.Old (Mac)"}) hive::Drop(classes + old);
    hive::Drop(tools + "\\MacApps\\Old (Mac)");
  }
}

TEST_F(JudgeTest, SaysWhatIsKeptOnPurpose) {
  using App = host::Application;
  const struct {
    std::function<void(App& chess)> change;
    std::string found;
  } cases[] = {
      {[](App& app) { app.bundleId = "test.Chess2"; },
       "Chess: kept: the launcher stays the one of test.Chess, though the host has test.Chess2\n"},
      {[](App& app) { app.icons.clear(); },
       "Chess: kept: the launcher stays, though the guest takes none of the host's icons\n"},
      {[](App& app) { app.documentTypes.pop_back(); }, "Chess: kept: the offer for .fen\n"},
      {[](App& app) { app.urlSchemes = {"go"}; }, "kept: the declaration of the scheme chess\n"},
      {[](App& app) { app.documentTypes.clear(); },
       "Chess: kept: the offer for .fen\nChess: kept: the offer for .pgn\nChess: kept: the claim of .pgn\n"
       "Chess: kept: the supported types\nChess: kept: the program that claims .pgn\n"},
      {[](App& app) { app.name = "Shogi"; },
       "Chess: kept: the offer for .fen\nChess: kept: the offer for .pgn\n"},
      {[](App&) { hive::PutText(classes + "chess", "", "URL:somebody else's"); },
       "Chess: kept: the scheme chess is declared by somebody else\n"},
      {[this](App&) { WriteFileAt(folder() + TEXT("\\Notes.exe"), "x"); },
       "kept: " + WideToUtf8(folder()) + "\\Notes.exe, a file of somebody else's\n"}};
  for (const auto& each : cases) {
    Mirror();
    std::vector<App> changed = apps_;
    each.change(changed[0]);
    catalogue_ = Share(changed);
    HandleSharingState(true);
    EXPECT_EQ(Findings(), each.found);
    for (const char* key : {"go", "chess"}) hive::Drop(classes + key);
  }
}

TEST_F(JudgeTest, WithSharingOffOnlyTheResidueMayBeThere) {
  Mirror();
  EXPECT_NE(Findings(false).find("Go: the launcher is there\n"), std::string::npos);
  EXPECT_NE(Findings(false).find("Go: the application key is there\n"), std::string::npos);
  const std::string residue = "kept: the claim of .pgn\n";
  const struct {
    std::function<void()> harm;
    std::string found;
  } cases[] = {{[] {}, residue},
               {[] { hive::PutKey(classes + ".fen\\OpenWithList\\Chess (Mac).exe"); },
                residue + "Chess: the offer for .fen is there\n"},
               {[] { hive::PutKey(classes + ".fen\\OpenWithList\\Old (Mac).exe"); },
                residue + "Old: kept: the offer for .fen\n"},
               {[] { hive::PutText(classes + "chess", "", "URL:chess (Mac)"); }, residue},
               {[] {
                  hive::PutText(classes + "chess", "", "URL:chess (Mac)");
                  hive::PutText(classes + "chess", "URL Protocol", "");
                },
                residue + "Chess: the declaration of the scheme chess is there\n"},
               {[this] { CreateDirectoryW(folder().c_str(), nullptr); },
                WideToUtf8(folder()) + " is there\n" + residue}};
  HandleSharingState(false);
  for (const auto& each : cases) {
    each.harm();
    EXPECT_EQ(Findings(false), each.found);
    hive::Drop(classes + ".fen");
    hive::Drop(classes + "chess");
  }
}

}  // namespace
