// Associations on the version that the layer reports, and with keys and calls that fail.
#include "common/windows_version.h"
#include "registry/registry_association.h"
#include "support/fault_runs.h"
#include "support/guest.h"
#include "support/hive.h"
#include "support/raised.h"

namespace {

const std::string classes = "HKEY_CURRENT_USER\\Software\\Classes\\";

class FileAssociationFaults : public GuestTest {};

TEST_F(FileAssociationFaults, AClaimGoesAsFarAsItCan) {
  const bool old = !IsWindowsVersionOrLater(6, 1);
  const std::string byDefault = old ? "default " : "";
  const struct {
    const char* denied;
    bool claimed, offered;
    std::string written;
  } cases[] = {{".pgn", !old, false, old ? "" : "progid command "},
               {".pgn\\OpenWithList", true, false, byDefault + "progid command "},
               {"pgn_auto_file", false, true, byDefault + "offer "},
               {"pgn_auto_file\\shell", false, true, byDefault + "progid offer "}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.denied);
    platform::ResetRegistry();
    platform::DenyKey(classes + c.denied, true);
    EXPECT_EQ(RegisterOpenWith(TEXT("Chess (Mac)"), TEXT("pgn"), TEXT("C:\\x"), true), c.offered);
    EXPECT_EQ(RegisterAutoFileProgId(HKEY_CURRENT_USER, TEXT("pgn"), TEXT("C:\\x\\a.exe")), c.claimed);
    platform::DenyKey(classes + c.denied, false);
    const std::string text = hive::Text();
    std::string written;
    if (text.find("\\.pgn]\n@=\"pgn_auto_file\"") != text.npos) written += "default ";
    if (text.find("pgn_auto_file]\n") != text.npos) written += "progid ";
    if (text.find("pgn_auto_file\\shell\\open\\command]\n@=") != text.npos) written += "command ";
    if (text.find("OpenWithList\\Chess (Mac).exe]\n@=") != text.npos) written += "offer ";
    EXPECT_EQ(written, c.written);
  }
}

TEST_F(FileAssociationFaults, OnlyTheHiveItselfIsAFailure) {
  const auto offer = [] {
    return Raised([] { RegisterOpenWith(TEXT("A"), TEXT("pgn"), TEXT("C:"), false); });
  };
  EXPECT_EQ(Failing("RegOpenCurrentUser", 1, offer), "registry: RegOpenCurrentUser() failed");
  const auto add = [] { return Raised([] { AddOpenWithProgId(TEXT("pgn")); }); };
  EXPECT_EQ(Failing("RegCreateKeyExW", 1, add), "");
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
