// Which of an extension's Open With offers the withdrawal takes for the launchers': those that the registry
// would, which folds the letter case of names with its own table.
#include <algorithm>

#include "support/module_fixture.h"
#include "sync/withdrawal.h"

namespace {

class Offers : public ModuleTest {};

TEST_F(Offers, AreTheLaunchersWhereTheRegistryTakesTheirNamesForOne) {
  const std::string launchers[] = {
      "Chezz", "Igo \xC3\x84", "Igo \xC3\x96", "Kiss", "\xE5\x9B\xB2\xE7\xA2\x81", "\xC3\x84\xC3\x96 K", ""};
  for (const std::string& name : launchers)
    hive::PutKey(hive::classes + "Applications\\" + name + " (Mac).exe");
  // In the last three, whether these are the same letters, tables differ.
  const std::string names[] = {"Chezz (Mac).exe",
                               "cHEZZ (mAC).EXE",
                               " (mac).exe",
                               "\xE5\x9B\xB2\xE7\xA2\x81 (Mac).exe",
                               "Igo \xC3\xA4 (Mac).exe",
                               "IGO \xC3\xB6 (MAC).EXE",
                               "Igo \xC3\x9C (Mac).exe",
                               "\xC3\xA4\xC3\x84 K (Mac).exe",
                               "\xE5\x9B\xB2\xE5\x9B\xB2 (Mac).exe",
                               "Kigo \xC3\x84 (Mac).exe",
                               "Chezz (Mac).ex",
                               "Chezz (Mac).exe2",
                               "Chezz  (Mac).exe",
                               "Shogi (Mac).exe",
                               "notepad.exe",
                               "Ki\xC5\xBFs (Mac).exe",
                               "\xE2\x84\xAAiss (Mac).exe",
                               "K\xC4\xB1ss (Mac).exe"};
  constexpr std::size_t sure = std::size(names) - 3;
  const auto list = [](std::size_t i) {
    return hive::classes + ".x" + std::to_string(i) + "\\OpenWithList\\";
  };
  std::vector<bool> same;
  for (const std::string& name : names) {  // each in a list of its own, and all in the last
    const std::string own = list(same.size());
    hive::PutKey(own + name + "\\deep");
    same.push_back(std::ranges::any_of(
        launchers, [&](const std::string& launcher) { return hive::Has(own + launcher + " (Mac).exe"); }));
  }
  for (std::size_t i = 0; i < sure; ++i) hive::PutKey(list(std::size(names)) + names[i]);
  EXPECT_EQ(std::count(same.begin(), same.begin() + sure, true), 6);

  EXPECT_EQ(Raised(WithdrawHostApplications), "");
  for (std::size_t i = 0; i < std::size(names); ++i) {
    EXPECT_EQ(hive::Has(list(i) + names[i]), !same[i]) << names[i];
    const bool amongOthers = i < sure && hive::Has(list(std::size(names)) + names[i]);
    EXPECT_EQ(amongOthers, i < sure && !same[i]) << names[i];
  }
}

}  // namespace
