// How the withdrawal goes through an extension's Open With offers, call by call, and what it does when it
// cannot see all of them.
#include <cstdlib>
#include <new>
#include <numeric>

#include "host/guest_view.h"
#include "support/fail_call.h"
#include "support/hive.h"
#include "support/module_fixture.h"
#include "support/raised.h"
#include "sync/withdrawal.h"

namespace {
// Allocations of this many bytes fail; 0: none.
thread_local std::size_t failingSize = 0;
thread_local std::size_t allocationsFailed = 0;
}  // namespace

void* operator new(std::size_t size) {
  const bool fails = size == failingSize && size != 0;
  allocationsFailed += fails;
  void* const memory = fails ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size == 0 ? 1 : size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

const std::string classes = "HKCU\\Software\\Classes\\";
const std::string list = classes + ".txt\\OpenWithList\\";
// Of offers that are no launchers'.
const std::string longName(200, 'x');

class OffersFaults : public ModuleTest {
 protected:
  // One extension with a claimed default; the launchers' offers stand around a foreign one.
  static void Arrange(const std::vector<std::string>& launchers) {
    for (const std::string& name : launchers) {
      hive::PutKey(classes + "Applications\\" + name + " (Mac).exe");
      hive::PutKey(list + name + " (Mac).exe");
    }
    hive::PutKey(list + longName);
    hive::PutText(classes + "txt_auto_file\\shell\\open\\command", "", "\"" + host::LauncherFolder() + "\\");
    hive::PutText(classes + ".txt", "", "txt_auto_file");
  }

  static std::vector<std::string> CallsOfWithdrawal() {
    platform::ArmFaultPlan({});
    EXPECT_EQ(Raised(WithdrawHostApplications), "");
    return platform::DisarmFaultPlan();
  }

  // The calls from the opening of the extension's list on.
  static std::string Calls() {
    const std::vector<std::string> all = CallsOfWithdrawal();
    const auto opened = std::find(all.rbegin(), all.rend(), "RegOpenKeyExW").base();
    return std::accumulate(
        opened, all.end(), std::string(),
        [](const std::string& text, const std::string& call) { return text + call + " "; });
  }

  static void ExpectDone(const std::vector<std::string>& launchers) {
    for (const std::string& name : launchers) EXPECT_FALSE(hive::Has(list + name + " (Mac).exe")) << name;
    EXPECT_TRUE(hive::Has(list + longName));
    EXPECT_EQ(hive::Value(classes + ".txt", ""), "\"\"");
  }
};

// The default of the extension, and the end of the sweep.
const std::string reset =
    "SHGetValueW RegCreateKeyExW RegSetValueExW RegCloseKey RegCloseKey RegEnumKeyExW RegEnumKeyExW "
    "RegCloseKey ";

TEST_F(OffersFaults, AreCollectedFirstAndDeletedAfterwards) {
  Arrange({"Chess", "Zoo"});
  hive::PutKey(classes + "Applications\\Shogi (Mac).exe");  // without an offer
  EXPECT_EQ(Calls(),
            "RegEnumKeyExW RegEnumKeyExW RegEnumKeyExW RegEnumKeyExW SHDeleteKeyW SHDeleteKeyW " + reset);
  ExpectDone({"Chess", "Zoo"});
}

TEST_F(OffersFaults, AreNotLookedAtWithoutLaunchers) {
  Arrange({});
  EXPECT_EQ(Calls(), reset);
  ExpectDone({});
}

TEST_F(OffersFaults, AreAskedForOneByOneWhenTheyCannotBeEnumerated) {
  const std::vector<std::string> launchers{"Chess", "Zoo"};
  Arrange(launchers);
  const std::vector<std::string> calls = CallsOfWithdrawal();
  const auto opened = static_cast<std::size_t>(
      std::find(calls.rbegin(), calls.rend(), "RegOpenKeyExW").base() - calls.begin());
  for (std::size_t offer = 1; offer <= launchers.size() + 2; ++offer) {  // the last one ends the enumeration
    SCOPED_TRACE(offer);
    ASSERT_EQ(calls[opened + offer - 1], "RegEnumKeyExW");
    Arrange(launchers);
    FailCall(opened + offer);
    EXPECT_EQ(Raised(WithdrawHostApplications), "");
    platform::DisarmFaultPlan();
    ExpectDone(launchers);
  }
}

TEST_F(OffersFaults, AreAskedForOneByOneWhenMemoryRunsOut) {
  Arrange({"Chess", "Zoo"});
  allocationsFailed = 0;
  failingSize = (longName.size() + 1) * sizeof(WCHAR);
  EXPECT_EQ(Raised(WithdrawHostApplications), "");
  failingSize = 0;
  EXPECT_EQ(allocationsFailed, 1u);
  ExpectDone({"Chess", "Zoo"});
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
