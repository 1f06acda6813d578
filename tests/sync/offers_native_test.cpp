// What the withdrawal does with an extension's Open With offers when it cannot see or delete all of them.
#include <algorithm>
#include <new>

#include "support/fault_runs.h"
#include "support/module_fixture.h"
#include "sync/withdrawal.h"

namespace {

const std::string list = "HKCU\\Software\\Classes\\.txt\\OpenWithList\\";

class OffersFaults : public ModuleTest {
 protected:
  // One extension with a claimed default; the launchers' offers stand around a foreign one.
  static void Arrange(const std::vector<std::string>& launchers) {
    for (const std::string& name : launchers) {
      hive::PutKey(hive::classes + "Applications\\" + name + " (Mac).exe");
      hive::PutKey(list + name + " (Mac).exe");
    }
    hive::PutKey(list + "foreign.exe");
    hive::PutText(hive::classes + "txt_auto_file\\shell\\open\\command", "",
                  "\"" + host::LauncherFolder() + "\\");
    hive::PutText(hive::classes + ".txt", "", "txt_auto_file");
  }

  static void ExpectDone(const std::vector<std::string>& launchers) {
    for (const std::string& name : launchers) EXPECT_FALSE(hive::Has(list + name + " (Mac).exe")) << name;
    EXPECT_TRUE(hive::Has(list + "foreign.exe"));
    EXPECT_EQ(hive::Value(hive::classes + ".txt", ""), "\"\"");
  }
};

TEST_F(OffersFaults, AreAskedForOneByOneWhenTheyCannotAllBeSeen) {
  const std::vector<std::string> launchers{"Chess", "Zoo"};
  Arrange(launchers);
  platform::ArmFaultPlan({});
  EXPECT_EQ(Raised(WithdrawHostApplications), "");
  const std::vector<std::string> calls = platform::DisarmFaultPlan();
  const auto opened = static_cast<std::size_t>(
      std::find(calls.rbegin(), calls.rend(), "RegOpenKeyExW").base() - calls.begin());
  for (std::size_t offer = 1; offer <= launchers.size() + 2; ++offer) {  // the last one ends the enumeration
    SCOPED_TRACE(offer);
    ASSERT_EQ(calls[opened + offer - 1], "RegEnumKeyExW");
    Arrange(launchers);
    EXPECT_EQ(Failing("", opened + offer, [] { return Raised(WithdrawHostApplications); }), "");
    ExpectDone(launchers);

    Arrange(launchers);
    std::size_t call = 0;
    platform::ArmFaultPlan({.before = [&](const std::string&) {
      if (++call == opened + offer) throw std::bad_alloc();
    }});
    EXPECT_EQ(Raised(WithdrawHostApplications), "");
    platform::DisarmFaultPlan();
    ExpectDone(launchers);
  }
}

TEST_F(OffersFaults, ThatCannotBeDeletedKeepNothingElseFromIt) {
  Arrange({"Chess", "Zoo"});
  platform::DenyKey("HKEY_CURRENT_USER" + list.substr(4) + "Chess (Mac).exe", true);
  EXPECT_EQ(Raised(WithdrawHostApplications), "");
  platform::DenyKey("HKEY_CURRENT_USER" + list.substr(4) + "Chess (Mac).exe", false);
  EXPECT_TRUE(hive::Has(list + "Chess (Mac).exe"));
  ExpectDone({"Zoo"});
}

}  // namespace
