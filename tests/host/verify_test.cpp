// The model of the guest, without a guest: what must be there after each state of the catalogue.
#include "host/verify.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using host::classesKey;
using host::Entries;
using host::registeredKey;
using host::RegistryText;
using host::tessarineKey;
using host::ValuePath;

const std::string folder = "C:\\L", shortcuts = "C:\\S";
const std::string applications = classesKey + "\\Applications", tools = tessarineKey + "\\Tessarine Tools";

host::Application App(const std::string& name, std::vector<std::string> types,
                      std::vector<std::string> defaults = {}, std::vector<std::string> schemes = {}) {
  host::Application app;
  app.bundleId = "id." + name;
  app.name = name;
  app.documentTypes = std::move(types);
  app.defaultTypes = std::move(defaults);
  app.urlSchemes = std::move(schemes);
  app.icons.resize(1);
  app.icons[0].size = 32;
  return app;
}

host::Catalogue Listed(const std::vector<host::Application>& apps) {
  host::Catalogue catalogue;
  for (const host::Application& app : apps) catalogue.Add(app);
  return catalogue;
}

class GuestModelTest : public ::testing::Test {
 protected:
  static host::Snapshot Installed() {
    host::Snapshot guest;
    for (const std::string& key : {classesKey, applications, registeredKey, tessarineKey, tools}) {
      guest.registry[key];
    }
    return guest;
  }

  host::Surroundings Around() {
    return {.launcherFolder = folder,
            .shortcutFolder = shortcuts,
            .machineAssociates = [this](const std::string& type) { return machine_.contains(type); },
            .machineDeclares = [this](const std::string& scheme) { return machine_.contains(scheme); }};
  }

  const std::string& Data(const std::string& key, const std::string& value) const {
    static const std::string none = "(none)";
    const auto found = model_.expected().registry.find(ValuePath(key, value));
    return found == model_.expected().registry.end() ? none : found->second;
  }
  bool Has(const std::string& key) const { return model_.expected().registry.contains(key); }

  std::set<std::string> machine_;  // what the machine's classes associate or declare
  host::GuestModel model_{Installed(), Around()};
};

// All values that an application with types, a default type and a scheme has, and nothing else.
TEST_F(GuestModelTest, OneApplicationInWhole) {
  model_.On(Listed({App("Chess", {"pgn", "fen"}, {"pgn"}, {"chess"})}));
  const std::string command = RegistryText("\"C:\\L\\Chess (Mac).exe\" \"%1\"");
  const std::string appKey = applications + "\\Chess (Mac).exe";
  const std::string capabilities = "SOFTWARE\\Tessarine\\Tessarine Tools\\MacApps\\Chess (Mac)\\Capabilities";
  const Entries values = {
      {ValuePath(appKey, ""), RegistryText("")},
      {ValuePath(appKey + "\\shell\\open\\command", ""), command},
      {ValuePath(appKey + "\\SupportedTypes", ".pgn"), RegistryText("")},
      {ValuePath(appKey + "\\SupportedTypes", ".fen"), RegistryText("")},
      {ValuePath(appKey + "\\SupportedProtocols", "chess"), RegistryText("")},
      {ValuePath(classesKey + "\\.pgn\\OpenWithList\\Chess (Mac).exe", ""), RegistryText("Chess (Mac).exe")},
      {ValuePath(classesKey + "\\.fen\\OpenWithList\\Chess (Mac).exe", ""), RegistryText("Chess (Mac).exe")},
      {ValuePath(classesKey + "\\pgn_auto_file", ""), RegistryText("")},
      {ValuePath(classesKey + "\\pgn_auto_file\\shell\\open\\command", ""), command},
      {ValuePath(classesKey + "\\.pgn\\OpenWithProgids", "pgn_auto_file"), "REG_NONE, 0 bytes"},
      {ValuePath(classesKey + "\\Tsrn.Url.Chess (Mac)\\shell\\open\\command", ""),
       RegistryText("\"C:\\L\\Chess (Mac).exe\" /url \"%1\"")},
      {ValuePath("HKCU\\" + capabilities + "\\URLAssociations", "chess"),
       RegistryText("Tsrn.Url.Chess (Mac)")},
      {ValuePath(classesKey + "\\chess", ""), RegistryText("URL:chess (Mac)")},
      {ValuePath(classesKey + "\\chess", "URL Protocol"), RegistryText("")},
      {ValuePath(registeredKey, "Chess (Mac)"), RegistryText(capabilities)},
  };
  Entries found = model_.expected().registry;
  std::erase_if(found,
                [](const auto& entry) { return entry.first.find(host::valueMark) == std::string::npos; });
  EXPECT_EQ(found, values);
  EXPECT_TRUE(Has(appKey + "\\shell\\open"));
  EXPECT_EQ(model_.expected().files, (Entries{{folder, ""},
                                              {folder + "\\Chess (Mac).exe", ""},
                                              {shortcuts, ""},
                                              {shortcuts + "\\Chess (Mac).lnk", ""}}));
  const host::Launcher launcher{"id.Chess", "Chess", "Chess (Mac)", {32}};
  EXPECT_EQ(model_.expected().launchers.at(folder + "\\Chess (Mac).exe"), launcher);
}

TEST_F(GuestModelTest, DefaultsAreClaimedOnlyWhereNothingOpensTheType) {
  machine_ = {".txt"};
  host::Application loom = App("Loom", {"txt", "exe"}, {"txt", "exe", "new"});
  loom.anyType = true;
  model_.On(Listed({loom, App("None", {}, {"other"})}));
  EXPECT_FALSE(Has(classesKey + "\\txt_auto_file"));
  EXPECT_TRUE(Has(classesKey + "\\.txt\\OpenWithList\\Loom (Mac).exe"));
  EXPECT_TRUE(Has(classesKey + "\\.new\\OpenWithList\\Loom (Mac).exe"));
  EXPECT_FALSE(Has(classesKey + "\\.exe\\OpenWithList"));  // black-listed, but its ProgID is offered
  EXPECT_FALSE(Has(classesKey + "\\exe_auto_file"));
  EXPECT_EQ(Data(classesKey + "\\.exe\\OpenWithProgids", "exe_auto_file"), "REG_NONE, 0 bytes");
  EXPECT_FALSE(Has(applications + "\\Loom (Mac).exe\\SupportedTypes"));
  EXPECT_EQ(Data(applications + "\\None (Mac).exe", "NoOpenWith"), RegistryText(""));
  EXPECT_FALSE(Has(classesKey + "\\.other"));
}

TEST_F(GuestModelTest, ASchemeBelongsToWhoDeclaredItFirst) {
  machine_ = {"mailto"};
  model_.On(Listed({App("A", {}, {}, {"s", "mailto"}), App("B", {}, {}, {"s"})}));
  EXPECT_FALSE(Has(classesKey + "\\mailto"));
  EXPECT_EQ(Data(classesKey + "\\s", ""), RegistryText("URL:s (Mac)"));
  EXPECT_EQ(Data(applications + "\\A (Mac).exe\\SupportedProtocols", "mailto"), RegistryText(""));
  model_.On(Listed({App("B", {}, {}, {})}));
  EXPECT_TRUE(Has(classesKey + "\\s"));  // outlives both until sharing is off
  EXPECT_FALSE(Has(classesKey + "\\Tsrn.Url.B (Mac)"));
  EXPECT_EQ(Data(registeredKey, "B (Mac)"), "(none)");
  model_.Off();
  EXPECT_FALSE(Has(classesKey + "\\s"));
}

TEST_F(GuestModelTest, ALauncherThatLostItsRegistrationIsRemovedAndThenBuiltAnew) {
  host::Snapshot start = Installed();
  start.files[folder + "\\A (Mac).exe"];
  start.launchers[folder + "\\A (Mac).exe"] = {"id.A", "A", "A (Mac)", {32}};
  host::GuestModel model(start, Around());
  model.On(Listed({App("A", {"a"})}));
  EXPECT_TRUE(model.expected().launchers.empty());
  EXPECT_TRUE(model.expected().registry.contains(classesKey + "\\.a\\OpenWithList\\A (Mac).exe"));
  model.On(Listed({App("A", {"a"})}));
  EXPECT_EQ(model.expected().launchers.size(), 1u);
}

TEST_F(GuestModelTest, ForeignEntriesStayButForThoseThatCarryTheMark) {
  host::Snapshot start = Installed();
  start.registry[ValuePath(classesKey + "\\txt_auto_file\\shell\\open\\command", "")] =
      RegistryText("\"C:\\x\"");
  start.registry[classesKey + "\\txt_auto_file"];
  start.registry[applications + "\\Tool.exe"];
  start.registry[applications + "\\Tool (Mac).exe"];
  host::GuestModel model(start, Around());
  model.Off();
  start.registry.erase(applications + "\\Tool (Mac).exe");
  EXPECT_EQ(model.expected().registry, start.registry);
}

TEST_F(GuestModelTest, DifferencesAreNamed) {
  model_.On(Listed({App("Chess", {"pgn"})}));
  host::Snapshot guest = model_.expected();
  EXPECT_TRUE(model_.Compare(guest).empty());
  guest.registry.erase(classesKey + "\\.pgn\\OpenWithList");
  guest.registry[ValuePath(applications + "\\Chess (Mac).exe", "")] = RegistryText("x");
  guest.files[folder + "\\More.exe"];
  guest.launchers[folder + "\\Chess (Mac).exe"].iconSizes = {16};
  const std::vector<std::string> differences = model_.Compare(guest);
  ASSERT_EQ(differences.size(), 4u);
  EXPECT_TRUE(differences[0].starts_with("unexpected: C:\\L\\More.exe"));
  EXPECT_TRUE(differences[1].starts_with("missing: HKCU\\Software\\Classes\\.pgn\\OpenWithList"));
  EXPECT_TRUE(differences[2].starts_with("wrong: " + applications + "\\Chess (Mac).exe, value"));
  EXPECT_TRUE(differences[3].starts_with("wrong: C:\\L\\Chess (Mac).exe: expected id.Chess"));
  EXPECT_EQ(BeyondResidue(Installed(), guest).size(), 13u);
}

}  // namespace
