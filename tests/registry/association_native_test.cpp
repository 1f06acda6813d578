// Associations with calls that fail, and the difference between the two questions to the shell, for which
// implementations of the platform have different answers.
#include "common/windows_version.h"
#include "registry/registry_association.h"
#include "support/fault_runs.h"
#include "support/guest.h"
#include "support/hive.h"
#include "support/raised.h"

namespace {

const std::string classes = "HKEY_CURRENT_USER\\Software\\Classes\\";
const WideString chess = TEXT("Chess (Mac)");

class FileAssociationFaults : public GuestTest {
 protected:
  // Which entries of a claimed .pgn are there.
  static std::string Entries() {
    const std::string text = hive::Text();
    std::string entries;
    if (text.find("OpenWithList\\Chess (Mac).exe]\n@=") != text.npos) entries += "offer ";
    if (text.find("\\.pgn]\n@=\"pgn_auto_file\"") != text.npos) entries += "default ";
    if (text.find("pgn_auto_file]\n") != text.npos) entries += "progid ";
    if (text.find("pgn_auto_file\\shell\\open\\command]\n@=") != text.npos) entries += "command ";
    return entries;
  }
};

TEST_F(FileAssociationFaults, AClaimGoesAsFarAsItCan) {
  const bool old = !IsWindowsVersionOrLater(6, 1);
  const std::string byDefault = old ? "default " : "";
  const struct {
    const char* denied;
    bool answer;
    std::string entries;
  } cases[] = {
      {".pgn", false, old ? "" : "progid command "},
      {".pgn\\OpenWithList", false, byDefault + "progid command "},
      {".pgn\\OpenWithList\\Chess (Mac).exe", false, byDefault + "progid command "},
      {"pgn_auto_file", true, "offer " + byDefault},
      {"pgn_auto_file\\shell", true, "offer " + byDefault + "progid "},
      {"pgn_auto_file\\shell\\open\\command", true, "offer " + byDefault + "progid "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.denied);
    platform::ResetRegistry();
    platform::DenyKey(classes + c.denied, true);
    EXPECT_EQ(RegisterOpenWith(chess, TEXT("pgn"), TEXT("C:\\x"), true), c.answer);
    platform::DenyKey(classes + c.denied, false);
    EXPECT_EQ(Entries(), c.entries);
  }
}

TEST_F(FileAssociationFaults, OnlyTheHiveItselfIsAFailure) {
  const auto offer = [] { RegisterOpenWith(chess, TEXT("pgn"), TEXT("C:\\x"), false); };
  WithFault(FirstCall("RegOpenCurrentUser", offer),
            [&] { EXPECT_EQ(Raised(offer), "registry: RegOpenCurrentUser() failed"); });
  platform::DenyKey(classes + ".pgn\\OpenWithProgids", true);
  EXPECT_EQ(Raised([] { AddOpenWithProgId(TEXT("pgn")); }), "");
}

TEST_F(FileAssociationFaults, AFailedQueryIsNoFreeType) {
  const auto query = [] { return IsUnassociated(TEXT("pgn")); };
  EXPECT_TRUE(query());
  WithFault(FirstCall("AssocQueryStringW", query), [&] { EXPECT_FALSE(query()); });
}

TEST_F(FileAssociationFaults, AProgIdWithoutCommandCountsFrom64On) {
  const hive::MachineAssociation opened("velomiraopened", true), named("velomiranamed", false);
  EXPECT_FALSE(IsUnassociated(TEXT("velomiraopened")));
  EXPECT_EQ(IsUnassociated(TEXT("velomiranamed")), !IsWindowsVersionOrLater(6, 4));
}

TEST_F(FileAssociationFaults, TheVersionTestsFollowTheReportedVersion) {
  const auto [major, minor] = platform::ReportedVersion();
  const struct {
    DWORD major, minor;
  } asked[] = {{5, 0}, {5, 2}, {6, 0}, {6, 1}, {6, 3}, {6, 4}, {10, 0}, {10, 1}};
  for (const auto& a : asked) {
    EXPECT_EQ(IsWindowsVersionOrLater(a.major, a.minor),
              major > a.major || (major == a.major && minor >= a.minor))
        << a.major << "." << a.minor;
  }
  EXPECT_EQ(IsWindows7OrLater(), major * 256 + minor >= 0x0601);
  EXPECT_FALSE(IsWindows2000OrEarlier());
}

}  // namespace
