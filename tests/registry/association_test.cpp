// Extensions and launchers. What a claim writes and which association counts depend on the Windows version,
// which is fixed for a process; these tests go by the one they find and are run once for each range.
#include "registry/registry_association.h"

#include "common/windows_version.h"
#include "support/module_fixture.h"

namespace {

const WideString chess = TEXT("Chess (Mac)");

class FileAssociation : public GuestTest {
 protected:
  const bool old_ = !IsWindowsVersionOrLater(6, 1);
};

TEST_F(FileAssociation, KeepsAwayFromTheSystemsOwnTypes) {
  const std::string before = hive::Text();
  for (const WCHAR* extension : {TEXT("LNK"), TEXT("EXE"), TEXT("COM"), TEXT("PIF"), TEXT("BAT"), TEXT("CMD"),
                                 TEXT("MSC"), TEXT("MSI"), TEXT("ICO"), TEXT("exe"), TEXT("Lnk")}) {
    EXPECT_FALSE(RegisterOpenWith(chess, extension, TEXT("C:\\x"), true)) << WideToUtf8(extension);
  }
  EXPECT_EQ(hive::Text(), before);
  for (const WCHAR* extension : {TEXT("exe2"), TEXT("ex"), TEXT("icon"), TEXT("\u00efco")}) {
    EXPECT_TRUE(RegisterOpenWith(chess, extension, TEXT("C:\\x"), false)) << WideToUtf8(extension);
  }
}

// With the offer written over where the launcher is offered alone, and left where it is to be the default.
TEST_F(FileAssociation, ClaimsWithTheLauncherOfTheFolderAndOffersIt) {
  const std::string offer = hive::classes + ".pgn\\OpenWithList\\Chess (Mac).exe",
                    progId = hive::classes + "pgn_auto_file";
  hive::PutText(hive::classes + ".pgn", "", "chosen");
  EXPECT_TRUE(RegisterOpenWith(chess, TEXT("pgn"), TEXT("C:\\old"), false));
  hive::PutText(offer, "", "written over");
  EXPECT_TRUE(RegisterOpenWith(chess, TEXT("pgn"), TEXT("C:\\old"), false));
  EXPECT_EQ(hive::Value(offer, ""), "\"Chess (Mac).exe\"");
  EXPECT_FALSE(hive::Has(progId));
  EXPECT_EQ(hive::Value(hive::classes + ".pgn", ""), "\"chosen\"");
  hive::PutText(offer, "", "not written over");
  EXPECT_FALSE(RegisterOpenWith(chess, TEXT("pgn"), TEXT("C:/new/"), true));
  EXPECT_EQ(hive::Value(offer, ""), "\"not written over\"");
  EXPECT_EQ(hive::Value(progId, ""), "\"\"");
  EXPECT_EQ(hive::Value(progId + "\\shell\\open\\command", ""), "\"\"C:/new/Chess (Mac).exe\" \"%1\"\"");
  EXPECT_EQ(hive::Value(hive::classes + ".pgn", ""), old_ ? "\"pgn_auto_file\"" : "\"chosen\"");
  RegisterOpenWith(chess, TEXT("pgn"), TEXT("C:\\x\\"), true);
  EXPECT_EQ(hive::Value(progId + "\\shell\\open\\command", ""), "\"\"C:\\x\\Chess (Mac).exe\" \"%1\"\"");
  EXPECT_TRUE(RegisterOpenWith(chess, TEXT("fen"), TEXT(""), true));
  EXPECT_EQ(hive::Value(hive::classes + ".fen\\OpenWithList\\Chess (Mac).exe", ""), "\"Chess (Mac).exe\"");
  EXPECT_EQ(hive::Value(hive::classes + "fen_auto_file\\shell\\open\\command", ""),
            "\"\"Chess (Mac).exe\" \"%1\"\"");
}

}  // namespace
