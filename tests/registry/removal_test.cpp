// Removal of one application's registration: its own entries go, everything else stays.
#include "registry/registry_removal.h"

#include "support/guest.h"
#include "support/hive.h"
#include "support/raised.h"

namespace {

const std::string classes = "HKCU\\Software\\Classes\\";
const std::string registered = "HKCU\\Software\\RegisteredApplications";
const std::string macApps = "HKCU\\Software\\Tessarine\\Tessarine Tools\\MacApps\\";

class RegistrationRemoval : public GuestTest {
 protected:
  static void Unregister() { UnregisterApplication(TEXT("Chess (Mac)")); }

  static void PutOwnEntries(const std::string& app) {
    hive::PutText(classes + "Tsrn.Url." + app + "\\shell\\open\\command", "", "x");
    hive::PutText(macApps + app + "\\Capabilities\\URLAssociations", "dropped", "x");
    hive::PutText(classes + "Applications\\" + app + ".exe\\SupportedTypes", ".pgn", "");
    hive::PutText(registered, app, "x");
  }
};

TEST_F(RegistrationRemoval, TakesItsOwnEntriesOnly) {
  PutOwnEntries("Chess (Mac) (Mac)");
  PutOwnEntries("Chess");
  hive::PutText(classes + ".pgn\\OpenWithList\\Chess (Mac).exe", "", "Chess (Mac).exe");
  hive::PutText(classes + "pgn_auto_file\\shell\\open\\command", "", "x");
  hive::PutText(classes + "chess", "URL Protocol", "");
  const std::string others = hive::Text();
  PutOwnEntries("Chess (Mac)");
  EXPECT_EQ(Raised(Unregister), "");
  EXPECT_EQ(hive::Text(), others);
}

TEST_F(RegistrationRemoval, TheListOfApplicationsStaysWhenItIsEmpty) {
  PutOwnEntries("Chess (Mac)");
  EXPECT_EQ(Raised(Unregister), "");
  EXPECT_TRUE(hive::Has(registered));
  EXPECT_EQ(Raised(Unregister), "registry_removal: can't unregister application");
}

TEST_F(RegistrationRemoval, WithoutTheListTheApplicationKeyStays) {
  PutOwnEntries("Chess (Mac)");
  hive::Drop(registered);
  EXPECT_EQ(Raised(Unregister), "registry: RegOpenKeyExW() failed");
  EXPECT_FALSE(hive::Has(classes + "Tsrn.Url.Chess (Mac)"));
  EXPECT_FALSE(hive::Has(macApps + "Chess (Mac)"));
  EXPECT_TRUE(hive::Has(classes + "Applications\\Chess (Mac).exe\\SupportedTypes"));
}

TEST_F(RegistrationRemoval, WithoutTheApplicationKeyTheRestGoesAllTheSame) {
  PutOwnEntries("Chess (Mac)");
  hive::Drop(classes + "Applications\\Chess (Mac).exe");
  EXPECT_EQ(Raised(Unregister), "registry_removal: can't unregister application");
  EXPECT_FALSE(hive::Has(classes + "Tsrn.Url.Chess (Mac)"));
  EXPECT_FALSE(hive::Has(macApps + "Chess (Mac)"));
  EXPECT_EQ(hive::Value(registered, "Chess (Mac)"), "none");
}

}  // namespace
