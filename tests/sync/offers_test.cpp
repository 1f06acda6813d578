// Which of an extension's Open With offers the withdrawal takes for the launchers': those that the registry
// would, which folds the letter case of names with its own table.
#include "support/module_fixture.h"
#include "sync/withdrawal.h"

namespace {

class Offers : public ModuleTest {};

TEST_F(Offers, AreTheLaunchersWhereTheRegistryTakesTheirNamesForOne) {
  const std::string launchers[] = {
      "Chess", "Igo \xC3\x84", "Igo \xC3\x96", "Kiss", "\xE5\x9B\xB2\xE7\xA2\x81", "\xC3\x84\xC3\x96 K", ""};
  for (const std::string& name : launchers)
    hive::PutKey(hive::classes + "Applications\\" + name + " (Mac).exe");
  const struct {
    std::string name;
    bool goes;
  } cases[] = {{"Chess (Mac).exe", true},
               {"cHESS (mAC).EXE", true},
               {" (mac).exe", true},
               {"Igo \xC3\xA4 (Mac).exe", true},         // the case of a letter beyond ASCII
               {"IGO \xC3\xB6 (MAC).EXE", true},         // and of the others
               {"Igo \xC3\x9C (Mac).exe", false},        // another letter beyond ASCII
               {"\xC3\xA4\xC3\x84 K (Mac).exe", false},  // letters in another place
               {"\xE5\x9B\xB2\xE7\xA2\x81 (Mac).exe", true},
               {"\xE5\x9B\xB2\xE5\x9B\xB2 (Mac).exe", false},
               {"Kigo \xC3\x84 (Mac).exe", false},
               {"Chess (Mac).ex", false},
               {"Chess (Mac).exe2", false},
               {"Chess  (Mac).exe", false},
               {"Shogi (Mac).exe", false},
               {"notepad.exe", false}};
  // Whether these are the same letters, tables differ.
  const std::string unsure[] = {"Ki\xC5\xBFs (Mac).exe", "\xE2\x84\xAAiss (Mac).exe",
                                "K\xC4\xB1ss (Mac).exe"};
  const auto list = [](std::size_t i) {
    return hive::classes + ".x" + std::to_string(i) + "\\OpenWithList\\";
  };
  std::size_t count = 0;
  for (const auto& c : cases) hive::PutKey(list(count++) + c.name + "\\deep");
  bool same[std::size(unsure)];
  for (std::size_t i = 0; i < std::size(unsure); ++i) {
    hive::PutKey(list(count) + unsure[i]);
    same[i] = hive::Has(list(count++) + "Kiss (Mac).exe");
  }
  for (const auto& c : cases) hive::PutKey(list(count) + c.name);  // all in one list

  EXPECT_EQ(Raised(WithdrawHostApplications), "");
  std::size_t at = 0;
  for (const auto& c : cases) {
    EXPECT_EQ(hive::Has(list(at++) + c.name), !c.goes) << c.name;
    EXPECT_EQ(hive::Has(list(count) + c.name), !c.goes) << c.name << ", among the others";
  }
  for (std::size_t i = 0; i < std::size(unsure); ++i) {
    EXPECT_EQ(hive::Has(list(at++) + unsure[i]), !same[i]) << unsure[i];
  }
}

}  // namespace
