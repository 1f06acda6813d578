// The judge is known by what it convicts: of each kind of thing that a guest holds, just that is made wrong.
#include "host/judge.h"

#include <windows.h>

#include <objbase.h>
#include <shlobj.h>

#include <functional>
#include <sstream>

#include "common/handles.h"
#include "frame/sharing_state.h"
#include "launcher/fs.h"
#include "support/gaps.h"
#include "support/hive.h"
#include "support/module_fixture.h"

namespace {

const std::string classes = "HKCU\\Software\\Classes\\", chessKey = classes + "Applications\\Chess (Mac).exe",
                  tools = "HKCU\\SOFTWARE\\Tessarine\\Tessarine Tools",
                  capabilities = tools + "\\MacApps\\Chess (Mac)",
                  registered = "HKCU\\Software\\RegisteredApplications";

// A link as a user makes it, without the properties.
void SavePlainLink(const WideString& target, const WideString& path) {
  void* made = nullptr;
  ASSERT_GE(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW, &made), 0);
  const ComPtr<IShellLinkW> link(static_cast<IShellLinkW*>(made));
  link->SetPath(target.c_str());
  link->SetDescription(TEXT("Tessarine Shared Application shortcut"));
  ASSERT_GE(link->QueryInterface(IID_IPersistFile, &made), 0);
  EXPECT_GE(ComPtr<IPersistFile>(static_cast<IPersistFile*>(made))->Save(path.c_str(), TRUE), 0);
}

class JudgeTest : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    host::Application chess = TestApplication("Chess"), go = TestApplication("Go");
    chess.documentTypes = {"pgn", "fen"};
    chess.defaultTypes = {"pgn"};
    chess.urlSchemes = {"chess"};
    chess.icons.push_back({"24.png", 24, true, TestBitmap(24, 24)});
    Catalogue({chess, go});
    apps_ = {chess, go};
  }

  void Catalogue(const std::vector<host::Application>& apps) {
    catalogue_ = {};
    for (const host::Application& app : apps) catalogue_.Add(app);
  }

  // A guest that has just mirrored both applications and nothing else.
  void Mirror() {
    HandleSharingState(false);
    for (const char* key : {".pgn", ".fen", "chess", "pgn_auto_file"}) hive::Drop(classes + key);
    Share(apps_);
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
  const std::string chess = WideToUtf8(Launcher("Chess"));
  const auto version = [&](const std::string& from, const std::string& to) {
    std::string data = ResourceData(Launcher("Chess"), 16, 1, 0x0400);
    const auto wide = [](const std::string& text) {
      const std::string units = host::Utf16Bytes(text);
      return units.substr(0, units.size() - 2);
    };
    PutResource(Launcher("Chess"), 16, 1, 0x0400,
                data.replace(data.find(wide(from)), 2 * from.size(), wide(to)));
  };
  const auto link = [&](const WideString& target, const char* text) {
    CreateShortcut(target, Shortcut("Chess"), Utf8ToWide(text));
  };
  const char* description = "Tessarine Shared Application shortcut";
  const struct {
    std::function<void()> harm;
    std::string found;
  } cases[] = {
      {[] {}, ""},
      {[&] { DeleteFileW(Launcher("Chess").c_str()); }, "Chess: the launcher is missing\n"},
      {[&] { WriteFileAt(Launcher("Chess"), "MZ"); }, "Chess: the launcher carries no identity\n"},
      {[&] { PutResource(Launcher("Chess"), 10, 260, 0, host::Utf16Bytes("")); },
       "Chess: the launcher carries no identity\n"},
      {[&] { PutResource(Launcher("Chess"), 10, 259, 0, host::Utf16Bytes("Chest")); },
       "Chess: the launcher carries the name \"Chest\"\n"},
      {[&] { PutResource(Launcher("Chess"), 10, 57005, 0, ""); },
       "Chess: the launcher's last resource, its marker, is not there\n"},
      {[&] { version("Chess (Mac)", "Chest (Mac)"); },
       "Chess: the launcher's version information, FileDescription: \"Chest (Mac)\" instead of \"Chess "
       "(Mac)\"\n"},
      {[&] { version("Comments", "Comment5"); },
       "Chess: the launcher's version information, Comment5: \"Tessarine Shared Application\" instead of "
       "nothing\n"
       "Chess: the launcher's version information, Comments: nothing instead of \"Tessarine Shared "
       "Application\"\n"},
      {[&] {
         std::string image = ResourceData(Launcher("Chess"), 3, 450, 0x0400);
         image[40 + 4 * 25] ^= 1;
         image[40 + 4 * 77 + 3] ^= 1;
         PutResource(Launcher("Chess"), 3, 450, 0x0400, image);
       },
       "Chess: the launcher's icon of 24 pixels differs from the catalogue's in 2 pixels\n"},
      {[&] { PutResource(Launcher("Chess"), 3, 449, 0x0400, ""); },
       "Chess: the launcher's icon of 16 pixels is not the catalogue's\n"},
      {[&] {
         const std::string group = ResourceData(Launcher("Chess"), 14, 448, 0x0400);
         PutResource(Launcher("Chess"), 14, 448, 0x0400, group.substr(0, 20));
       },
       "Chess: the launcher lacks the icon of 24 pixels\n"},
      {[&] { DeleteFileW(Shortcut("Chess").c_str()); }, "Chess: the shortcut is missing\n"},
      {[&] { WriteFileAt(Shortcut("Chess"), "junk"); }, "Chess: the shortcut is no shell link\n"},
      {[&] { link(Launcher("Go"), description); },
       "Chess: the shortcut leads to \"" + WideToUtf8(Launcher("Go")) + "\"\n"},
      {[&] { link(Launcher("Chess"), "A game"); }, "Chess: the shortcut's description is \"A game\"\n"},
      {[&] { SavePlainLink(Launcher("Chess"), Shortcut("Chess")); },
       Lacks(Gap::LinkProperties)
           ? ""
           : "Chess: the shortcut does not say that it is not to be pinned\n"
             "Chess: the shortcut does not say that it is not to be announced as new\n"},
      {[&] { hive::Drop(chessKey); }, "Chess: the application key is missing\n"},
      {[&] { hive::PutText(chessKey + "\\shell\\open\\command", "", "x"); },
       "Chess: the command that opens files: \"x\" instead of \"\"" + chess + "\" \"%1\"\"\n"},
      {[&] { hive::PutText(chessKey, "NoOpenWith", ""); }, "Chess: the mark NoOpenWith is there\n"},
      {[&] { hive::Drop(chessKey + "\\SupportedTypes"); }, "Chess: the supported types is missing\n"},
      {[&] { hive::PutText(chessKey + "\\SupportedTypes", ".x", ""); },
       "Chess: the supported type .x is there\n"},
      {[&] { hive::PutText(chessKey + "\\SupportedProtocols", "x", ""); },
       "Chess: the supported scheme x is there\n"},
      {[&] { hive::Drop(classes + ".fen\\OpenWithList\\Chess (Mac).exe"); },
       "Chess: the offer for .fen is missing\n"},
      {[&] { hive::PutText(classes + ".fen\\OpenWithList\\Chess (Mac).exe", "", "x"); },
       "Chess: the offer for .fen: \"x\" instead of \"Chess (Mac).exe\"\n"},
      {[&] { hive::Drop(classes + ".pgn\\OpenWithProgids"); }, "Chess: the claim of .pgn is missing\n"},
      {[&] { hive::PutText(classes + ".pgn\\OpenWithProgids", "pgn_auto_file", ""); },
       "Chess: the claim of .pgn: \"\" instead of REG_NONE, 0 bytes\n"},
      {[&] { hive::Drop(classes + "pgn_auto_file"); }, "Chess: the program that claims .pgn is missing\n"},
      {[&] { hive::PutText(classes + "pgn_auto_file\\shell\\open\\command", "", "x"); },
       "Chess: the program that claims .pgn: \"x\" instead of \"\"" + chess + "\" \"%1\"\"\n"},
      {[&] { hive::Drop(classes + "Tsrn.Url.Chess (Mac)"); },
       "Chess: the command that opens addresses is missing\n"},
      {[&] { hive::Drop(capabilities); }, "Chess: the set of capabilities is missing\n"},
      {[&] { hive::PutText(capabilities + "\\Capabilities\\URLAssociations", "x", "Tsrn.Url.Chess (Mac)"); },
       "Chess: the capability for the scheme x is there\n"},
      {[&] { hive::PutText(registered, "Chess (Mac)", "x"); },
       "Chess: the entry among the registered applications: \"x\" instead of "
       "\"SOFTWARE\\Tessarine\\Tessarine Tools\\MacApps\\Chess (Mac)\\Capabilities\"\n"},
      {[&] { hive::Drop(classes + "chess"); }, "Chess: the declaration of the scheme chess is missing\n"},
      {[&] { hive::Drop(tools + "\\MacApps"); }, "Chess: the set of capabilities is missing\n"},
      // Of an application that is not listed.
      {[&] { CopyFileW(Launcher("Go").c_str(), Launcher("Old").c_str(), TRUE); },
       "Old: the launcher is there\n"},
      {[&] { CopyFileW(Shortcut("Go").c_str(), Shortcut("Old").c_str(), TRUE); },
       "Old: the shortcut is there\n"},
      {[&] { hive::PutKey(classes + "Applications\\Old (Mac).exe"); }, "Old: the application key is there\n"},
      {[&] { hive::PutKey(classes + "Tsrn.Url.Old (Mac)"); },
       "Old: the command that opens addresses is there\n"},
      {[&] { hive::PutKey(tools + "\\MacApps\\Old (Mac)"); }, "Old: the set of capabilities is there\n"},
      {[&] { hive::PutText(registered, "Old (Mac)", ""); },
       "Old: the entry among the registered applications is there\n"},
  };
  for (const auto& each : cases) {
    Mirror();
    each.harm();
    EXPECT_EQ(Findings(), each.found);
    hive::Drop(classes + "Applications\\Old (Mac).exe");
    hive::Drop(classes + "Tsrn.Url.Old (Mac)");
    hive::Drop(tools + "\\MacApps\\Old (Mac)");
  }
}

TEST_F(JudgeTest, SaysWhatIsKeptOnPurpose) {
  const std::string chess = WideToUtf8(Launcher("Chess"));
  const auto put = [&](const auto& edit) {
    std::vector<host::Application> changed = apps_;
    edit(changed[0]);
    Catalogue(changed);
    Share(changed);
    HandleSharingState(true);
  };
  using App = host::Application;
  const struct {
    std::function<void()> change;
    std::string found;
  } cases[] = {
      {[&] { put([](App& app) { app.bundleId = "test.Chess2"; }); },
       "Chess: kept: the launcher stays the one of test.Chess, though the host has test.Chess2\n"},
      {[&] { put([](App& app) { app.icons.clear(); }); },
       "Chess: kept: the launcher stays, though the guest takes none of the host's icons\n"},
      {[&] { put([](App& app) { app.documentTypes.pop_back(); }); }, "Chess: kept: the offer for .fen\n"},
      {[&] { put([](App& app) { app.urlSchemes = {"go"}; }); },
       "kept: the declaration of the scheme chess\n"},
      {[&] { put([](App& app) { app.documentTypes.clear(); }); },
       "Chess: kept: the offer for .fen\nChess: kept: the offer for .pgn\nChess: kept: the claim of .pgn\n"
       "Chess: kept: the supported types\nChess: kept: the program that claims .pgn\n"},
      {[&] { put([](App& app) { app.name = "Shogi"; }); },
       "Chess: kept: the offer for .fen\nChess: kept: the offer for .pgn\n"},
      {[&] {
         hive::PutText(classes + "chess", "", "URL:somebody else's");
         put([](App&) {});
       },
       "Chess: kept: the scheme chess is declared by somebody else\n"},
      {[&] { WriteFileAt(folder() + TEXT("\\Notes.exe"), "x"); },
       "kept: " + WideToUtf8(folder()) + "\\Notes.exe, a file of somebody else's\n"},
  };
  for (const auto& each : cases) {
    Catalogue(apps_);
    Mirror();
    each.change();
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
  } cases[] = {
      {[] {}, residue},
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
       WideToUtf8(folder()) + " is there\n" + residue},
  };
  HandleSharingState(false);
  for (const auto& each : cases) {
    each.harm();
    EXPECT_EQ(Findings(false), each.found);
    hive::Drop(classes + ".fen");
    hive::Drop(classes + "chess");
  }
}

}  // namespace
