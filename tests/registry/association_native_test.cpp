// Associations on the version that the layer reports, and with keys and calls that fail.
#include "common/windows_version.h"
#include "registry/registry_association.h"
#include "support/fault_runs.h"
#include "support/module_fixture.h"

namespace {

class FileAssociationFaults : public GuestTest {};

TEST_F(FileAssociationFaults, AClaimGoesAsFarAsItCan) {
  const bool old = !IsWindowsVersionOrLater(6, 1);
  const struct {
    const char* denied;
    bool claimed, offered;
  } cases[] = {{".pgn", !old, false},
               {".pgn\\OpenWithList", true, false},
               {"pgn_auto_file", false, true},
               {"pgn_auto_file\\shell", false, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.denied);
    platform::ResetRegistry();
    platform::DenyKey("HKEY_CURRENT_USER\\Software\\Classes\\" + std::string(c.denied), true);
    EXPECT_EQ(RegisterOpenWith(TEXT("Chess (Mac)"), TEXT("pgn"), TEXT("C:\\x"), true), c.offered);
    EXPECT_EQ(RegisterAutoFileProgId(HKEY_CURRENT_USER, TEXT("pgn"), TEXT("C:\\x\\a.exe")), c.claimed);
    platform::DenyKey("HKEY_CURRENT_USER\\Software\\Classes\\" + std::string(c.denied), false);
    EXPECT_EQ(hive::Has(hive::classes + "pgn_auto_file\\shell\\open\\command"), c.claimed);
    EXPECT_EQ(hive::Has(hive::classes + ".pgn\\OpenWithList\\Chess (Mac).exe"), c.offered);
  }
}

TEST_F(FileAssociationFaults, OnlyTheHiveItselfIsAFailure) {
  const auto offer = [] {
    return Raised([] { RegisterOpenWith(TEXT("A"), TEXT("pgn"), TEXT("C:"), false); });
  };
  EXPECT_EQ(Failing("RegOpenCurrentUser", 1, offer), "registry: RegOpenCurrentUser() failed");
  const auto add = [] { return Raised([] { AddOpenWithProgId(TEXT("pgn")); }); };
  EXPECT_EQ(Failing("RegCreateKeyExW", 1, add), "");
  const auto claim = [] { return RegisterAutoFileProgId(HKEY_CURRENT_USER, TEXT("pgn"), TEXT("C:\\a.exe")); };
  EXPECT_FALSE(Failing("SHSetValueW", 1, claim));
  EXPECT_FALSE(Failing("AssocQueryStringW", 1, [] { return IsUnassociated(TEXT("pgn")); }));
}

// Through 6.3 only what can be started counts as an association; of a ProgID without a command not every
// implementation of the platform says the same.
TEST_F(FileAssociationFaults, AProgIdWithoutCommandCountsFrom64On) {
  hive::PutMachineAssociation("velomiranamed", false);
  hive::PutMachineAssociation("velomiraopened", true);
  EXPECT_FALSE(IsUnassociated(TEXT("velomiraopened")));
  EXPECT_EQ(IsUnassociated(TEXT("velomiranamed")), !IsWindowsVersionOrLater(6, 4));
}

TEST_F(FileAssociationFaults, TheVersionTestsFollowTheReportedVersion) {
  const auto [major, minor] = platform::ReportedVersion();
  for (const DWORD askedMajor : {5u, 6u, 10u}) {
    for (DWORD askedMinor = 0; askedMinor < 5; ++askedMinor) {
      EXPECT_EQ(IsWindowsVersionOrLater(askedMajor, askedMinor),
                std::pair(major, minor) >= std::pair(askedMajor, askedMinor));
    }
  }
  EXPECT_EQ(IsWindows7OrLater(), major * 256 + minor >= 0x0601);
  EXPECT_EQ(IsWindows2000OrEarlier(), major * 256 + minor <= 0x0500);
}

}  // namespace
