// How the model of the guest names what differs. What it expects is tried against the module itself.
#include "host/verify.h"

#include <gtest/gtest.h>

namespace {

using host::classesKey;
using host::RegistryText;
using host::tessarineKey;
using host::ValuePath;

const std::string folder = "C:\\L", shortcuts = "C:\\S";
const std::string applications = "HKCU\\Software\\Classes\\Applications",
                  tools = "HKCU\\SOFTWARE\\Tessarine\\Tessarine Tools";

host::Catalogue ChessAlone() {
  host::Application app;
  app.bundleId = "id.Chess";
  app.name = "Chess";
  app.documentTypes = {"pgn"};
  app.icons.resize(1);
  app.icons[0].size = 32;
  host::Catalogue catalogue;
  catalogue.Add(std::move(app));
  return catalogue;
}

host::Snapshot Installed() {
  host::Snapshot guest;
  for (const std::string& key : {classesKey, applications, host::registeredKey, tessarineKey, tools}) {
    guest.registry[key];
  }
  return guest;
}

TEST(GuestModel, DifferencesAreNamed) {
  host::GuestModel model(Installed(), {.launcherFolder = folder,
                                       .shortcutFolder = shortcuts,
                                       .machineAssociates = [](const std::string&) { return false; },
                                       .machineDeclares = [](const std::string&) { return false; }});
  model.On(ChessAlone());
  host::Snapshot guest = model.expected();
  EXPECT_TRUE(model.Compare(guest).empty());
  guest.registry.erase(classesKey + "\\.pgn\\OpenWithList");
  guest.registry[ValuePath(applications + "\\Chess (Mac).exe", "")] = RegistryText("x");
  guest.files[folder + "\\More.exe"];
  guest.launchers[folder + "\\Chess (Mac).exe"].iconSizes = {16};
  const std::vector<std::string> differences = model.Compare(guest);
  ASSERT_EQ(differences.size(), 4u);
  EXPECT_TRUE(differences[0].starts_with("unexpected: C:\\L\\More.exe"));
  EXPECT_TRUE(differences[1].starts_with("missing: HKCU\\Software\\Classes\\.pgn\\OpenWithList"));
  EXPECT_TRUE(differences[2].starts_with("wrong: " + applications + "\\Chess (Mac).exe, value"));
  EXPECT_TRUE(differences[3].starts_with("wrong: C:\\L\\Chess (Mac).exe: expected id.Chess"));
  EXPECT_EQ(BeyondResidue(Installed(), guest).size(), 13u);
}

}  // namespace
