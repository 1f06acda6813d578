// Registration with each key of the hive refused in turn: what is raised, and that nothing later was written.
#include "registry/registry_registration.h"

#include "support/fault_runs.h"
#include "support/hive.h"
#include "support/module_fixture.h"
#include "support/raised.h"

namespace {

class RegistrationFaults : public ModuleTest {};

TEST_F(RegistrationFaults, ARefusedKeyEndsItUnlessItsStepIsContained) {
  host::Application chess = TestApplication("Chess");
  chess.documentTypes = {"pgn"};
  chess.defaultTypes = {"pgn"};
  chess.urlSchemes = {"chess"};
  Share({chess});
  const char *create = "registry: RegCreateKeyEx() failed", *open = "registry: RegOpenKeyExW() failed";
  const std::string classes = "HKCU\\Software\\Classes\\",
                    tools = "HKCU\\Software\\Tessarine\\Tessarine Tools";
  const std::string appKey = "HKCU\\Software\\Classes\\Applications\\Chess (Mac).exe";
  // In the order of the steps; the last key that an undisturbed run creates is found only behind the
  // contained.
  const struct {
    std::string denied;
    const char* raised;
  } cases[] = {
      {appKey, "registry_registration: can't register application"},
      {appKey + "\\shell\\open\\command", "registry_registration: can't register application"},
      {classes + ".pgn\\OpenWithList", ""},
      {appKey + "\\SupportedTypes", create},
      {classes + "pgn_auto_file", ""},
      {classes + ".pgn\\OpenWithProgids", ""},
      {appKey + "\\SupportedProtocols", create},
      {tools, open},
      {classes + "Tsrn.Url.Chess (Mac)", create},
      {tools + "\\MacApps\\Chess (Mac)\\Capabilities\\URLAssociations", create},
      {classes + "chess", create},
      {"HKCU\\Software\\RegisteredApplications", create},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.denied);
    platform::ResetRegistry();
    InstallTools();
    platform::DenyKey("HKEY_CURRENT_USER" + c.denied.substr(4), true);
    EXPECT_EQ(Raised([&] { RegisterHostApplication(folder(), Info("Chess"), false); }), c.raised);
    platform::DenyKey("HKEY_CURRENT_USER" + c.denied.substr(4), false);
    EXPECT_EQ(hive::Value("HKCU\\Software\\RegisteredApplications", "Chess (Mac)") == "none", *c.raised != 0);
    EXPECT_EQ(hive::Has(tools + "\\MacApps"),
              *c.raised == 0 || &c >= std::end(cases) - 3);  // schemes come after it in order
  }
}

}  // namespace
