// Extensions and launchers. What a claim writes and which association counts depend on the Windows version,
// which is fixed for a process; these tests go by the one they find and are run once for each range.
#include "registry/registry_association.h"

#include <windows.h>

#include "common/windows_version.h"
#include "support/guest.h"
#include "support/hive.h"

namespace {

const std::string classes = "HKCU\\Software\\Classes";
const WideString chess = TEXT("Chess (Mac)");

std::string OpenCommandOf(const std::string& launcher) {
  return "\"\"" + launcher + "\" \"%1\"\"";
}

class FileAssociationOffer : public GuestTest {};

TEST_F(FileAssociationOffer, NamesTheLauncherAndCanBeRepeated) {
  const std::string expected =
      "[Software\\Classes]\n[Software\\Classes\\.pgn]\n[Software\\Classes\\.pgn\\OpenWithList]\n"
      "[Software\\Classes\\.pgn\\OpenWithList\\Chess (Mac).exe]\n@=\"Chess (Mac).exe\"\n";
  for (int run = 0; run < 2; ++run) {
    EXPECT_TRUE(RegisterOpenWith(chess, TEXT("pgn"), TEXT("C:\\x"), false));
    EXPECT_EQ(hive::Text(), expected);
  }
}

TEST_F(FileAssociationOffer, KeepsAwayFromTheSystemsOwnTypes) {
  const std::string before = hive::Text();
  for (const WCHAR* extension :
       {TEXT("lnk"), TEXT("exe"), TEXT("com"), TEXT("pif"), TEXT("bat"), TEXT("cmd"), TEXT("msc"),
        TEXT("msi"), TEXT("ico"), TEXT("EXE"), TEXT("Lnk"), TEXT("iCo")}) {
    for (const bool asDefault : {false, true}) {
      EXPECT_FALSE(RegisterOpenWith(chess, extension, TEXT("C:\\x"), asDefault)) << WideToUtf8(extension);
    }
  }
  EXPECT_EQ(hive::Text(), before);
  for (const WCHAR* extension : {TEXT("exe2"), TEXT("ex"), TEXT("icon"), TEXT("\u00efco")}) {
    EXPECT_TRUE(RegisterOpenWith(chess, extension, TEXT("C:\\x"), false)) << WideToUtf8(extension);
  }
}

class FileAssociationClaim : public GuestTest {};

TEST_F(FileAssociationClaim, WritesTheProgIdAndTheDefaultOfOldSystems) {
  EXPECT_TRUE(RegisterOpenWith(chess, TEXT("pgn"), TEXT("C:\\x"), true));
  const std::string defaultLine = IsWindowsVersionOrLater(6, 1) ? "" : "@=\"pgn_auto_file\"\n";
  EXPECT_EQ(hive::Text(),
            "[Software\\Classes]\n[Software\\Classes\\.pgn]\n" + defaultLine +
                "[Software\\Classes\\.pgn\\OpenWithList]\n"
                "[Software\\Classes\\.pgn\\OpenWithList\\Chess (Mac).exe]\n@=\"Chess (Mac).exe\"\n"
                "[Software\\Classes\\pgn_auto_file]\n@=\"\"\n"
                "[Software\\Classes\\pgn_auto_file\\shell]\n[Software\\Classes\\pgn_auto_file\\shell\\open]\n"
                "[Software\\Classes\\pgn_auto_file\\shell\\open\\command]\n@=" +
                OpenCommandOf("C:\\x\\Chess (Mac).exe") + "\n");
}

TEST_F(FileAssociationClaim, OfAnOfferedTypeNamesTheNewLauncherAndDoesNotCount) {
  const std::string offer = classes + "\\.pgn\\OpenWithList\\Chess (Mac).exe";
  hive::PutText(offer, "", "not rewritten");
  hive::PutText(classes + "\\.pgn", "", "chosen");
  EXPECT_FALSE(RegisterOpenWith(chess, TEXT("pgn"), TEXT("C:\\new"), true));
  EXPECT_EQ(hive::Value(offer, ""), "\"not rewritten\"");
  EXPECT_EQ(hive::Value(classes + "\\pgn_auto_file\\shell\\open\\command", ""),
            OpenCommandOf("C:\\new\\Chess (Mac).exe"));
  EXPECT_EQ(hive::Value(classes + "\\.pgn", ""),
            IsWindowsVersionOrLater(6, 1) ? "\"chosen\"" : "\"pgn_auto_file\"");
}

TEST_F(FileAssociationClaim, PutsOneSeparatorIntoTheCommand) {
  const struct {
    const WCHAR* folder;
    const char* path;
  } cases[] = {{TEXT("C:\\x"), "C:\\x\\Chess (Mac).exe"},
               {TEXT("C:\\x\\"), "C:\\x\\Chess (Mac).exe"},
               {TEXT("C:/x/"), "C:/x/Chess (Mac).exe"},
               {TEXT(""), "Chess (Mac).exe"}};
  for (const auto& c : cases) {
    RegisterOpenWith(chess, TEXT("pgn"), c.folder, true);
    EXPECT_EQ(hive::Value(classes + "\\pgn_auto_file\\shell\\open\\command", ""), OpenCommandOf(c.path));
  }
}

TEST_F(FileAssociationClaim, AddsTheProgIdWithoutData) {
  hive::PutText(classes + "\\.pgn", "", "chosen");
  AddOpenWithProgId(TEXT("pgn"));
  AddOpenWithProgId(TEXT("pgn"));
  EXPECT_EQ(hive::Text(),
            "[Software\\Classes]\n[Software\\Classes\\.pgn]\n@=\"chosen\"\n"
            "[Software\\Classes\\.pgn\\OpenWithProgids]\n\"pgn_auto_file\"=REG_NONE, 0 bytes\n");
}

class FileAssociationQuery : public GuestTest {};

TEST_F(FileAssociationQuery, AsksWhetherAnythingOpensTheType) {
  const hive::MachineAssociation opened("velomiraopened", true);
  hive::PutKey(classes + "\\.velomiraoffered\\OpenWithList\\Chess (Mac).exe");
  hive::PutText(classes + "\\.velomiraoffered\\OpenWithProgids", "velomiraoffered_auto_file", "");
  EXPECT_TRUE(IsUnassociated(TEXT("velomirafree")));
  EXPECT_TRUE(IsUnassociated(TEXT("velomiraoffered")));
  EXPECT_FALSE(IsUnassociated(TEXT("velomiraopened")));
}

}  // namespace
