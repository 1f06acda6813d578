// The withdrawal with keys that cannot be opened, and what its sweeps cost.
#include "sync/withdrawal.h"

#include "host/guest_view.h"
#include "support/fault_runs.h"
#include "support/hive.h"
#include "support/module_fixture.h"
#include "support/raised.h"

namespace {

const std::string classes = "HKCU\\Software\\Classes\\";
const std::string applications = "HKCU\\Software\\Classes\\Applications\\";
const std::string command = "\\shell\\open\\command";

class WithdrawalFaults : public ModuleTest {
 protected:
  static std::string Withdraw() { return Raised(WithdrawHostApplications); }
  static void Deny(const std::string& path, bool deny) {
    platform::DenyKey("HKEY_CURRENT_USER" + path.substr(4), deny);
  }

  // An entry for each sweep, and which of them are left.
  static void Arrange() {
    for (const char* name : {"Chess", "Go"}) {
      const std::string app = std::string(name) + " (Mac)";
      hive::PutText(applications + app + ".exe" + command, "", "x");
      hive::PutText(classes + name, "", "URL:" + app);
      hive::PutText(classes + name, "URL Protocol", "");
      hive::PutText(classes + name + "_auto_file" + command, "", "\"" + host::LauncherFolder());
      hive::PutText(classes + "." + name, "", std::string(name) + "_auto_file");
      hive::PutText(classes + "." + name + "\\OpenWithList\\" + app + ".exe", "", app + ".exe");
    }
  }
  static std::string Left() {
    std::string left;
    for (const std::string name : {"Chess", "Go"}) {
      const std::string exe = name + " (Mac).exe";
      if (hive::Has(applications + exe)) left += name + ".key ";
      if (hive::Has(classes + name)) left += name + ".scheme ";
      if (hive::Has(classes + name + "_auto_file")) left += name + ".progid ";
      if (hive::Value(classes + "." + name, "") != "\"\"") left += name + ".default ";
      if (hive::Has(classes + "." + name + "\\OpenWithList\\" + exe)) left += name + ".offer ";
    }
    return left;
  }
};

TEST_F(WithdrawalFaults, OneEntrysFailureLeavesTheOthersAlone) {
  const struct {
    std::string denied;
    const char* left;
  } cases[] = {
      {"HKCU\\Software\\None", ""},
      {applications + "Chess (Mac).exe", "Chess.key "},
      {classes + "Chess", "Chess.scheme "},
      {classes + "Chess_auto_file", "Chess.progid "},
      {classes + "Chess_auto_file" + command, "Chess.progid Chess.default "},
      {classes + ".Chess", "Chess.default "},
      {classes + ".Chess\\OpenWithList", "Chess.default Chess.offer "},
      {classes + ".Chess\\OpenWithList\\Chess (Mac).exe", "Chess.offer "},
      {"HKCU\\Software\\RegisteredApplications", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.denied);
    Arrange();
    Deny(c.denied, true);
    EXPECT_EQ(Withdraw(), "");
    Deny(c.denied, false);
    EXPECT_EQ(Left(), c.left);
    EXPECT_EQ(Withdraw(), "");
  }
}

TEST_F(WithdrawalFaults, TheHiveThatCannotBeOpenedCountsBySweep) {
  Arrange();
  const std::vector<std::string> calls = CallsOf([] { Withdraw(); });
  std::string outcomes;
  for (std::size_t n = 1; n <= calls.size(); ++n) {
    if (calls[n - 1] != "RegOpenCurrentUser" && calls[n - 1] != "SHGetSpecialFolderPathW") continue;
    hive::Drop("HKCU\\Software\\Classes");
    hive::PutKey("HKCU\\Software\\Classes\\Applications");
    Arrange();
    std::string raised;
    WithFault(n, [&] { raised = Withdraw(); });
    outcomes += (raised.empty() ? "done" : raised) + "; " + Left() + "\n";
  }
  const std::string offers = "Chess.default Chess.offer Go.default Go.offer ";
  EXPECT_EQ(
      outcomes,
      "registry: RegOpenCurrentUser() failed; Chess.key Chess.scheme Chess.progid Chess.default Chess.offer "
      "Go.key Go.scheme Go.progid Go.default Go.offer \n"
      "done; \n"  // for one application
      "done; \n"  // for the other
      "registry: RegOpenCurrentUser() failed; Chess.scheme Chess.progid Chess.default Chess.offer "
      "Go.scheme Go.progid Go.default Go.offer \n"
      "fs: SHGetSpecialFolderPathW() failed; Chess.progid Chess.default Chess.offer "
      "Go.progid Go.default Go.offer \n"
      "registry: RegOpenCurrentUser() failed; Chess.progid Chess.default Chess.offer "
      "Go.progid Go.default Go.offer \n"
      "registry: RegOpenCurrentUser() failed; " +
          offers + "\n");
}

TEST_F(WithdrawalFaults, ForeignClassesCostOneQueryAndThreeSteps) {
  constexpr std::size_t foreign = 50;
  for (std::size_t i = 0; i < foreign; ++i)
    hive::PutText(classes + "Foreign." + std::to_string(i), "", "x (Mac)");
  platform::ResetCallCounts();
  EXPECT_EQ(Withdraw(), "");
  const auto counts = platform::CallCounts();
  EXPECT_EQ(counts.at("SHGetValueW"), foreign + 1);                  // and the key of the applications
  EXPECT_EQ(counts.at("RegEnumKeyExW"), 1 + 3 * (foreign + 1 + 1));  // to the end in each sweep
  EXPECT_EQ(counts.at("RegOpenKeyExW"), 4u);
}

}  // namespace
