// Registration of one application: the whole hive after it, and what changes with the host's details and with
// keys that are missing.
#include "registry/registry_registration.h"

#include "common/windows_version.h"
#include "host/verify.h"
#include "support/module_fixture.h"

namespace {

constexpr std::uint32_t getDetails = 104;
const std::string appKey = "HKCU\\Software\\Classes\\Applications\\Chess (Mac).exe";
const std::string tools = "HKCU\\Software\\Tessarine\\Tessarine Tools";
const std::string urlKey = "HKCU\\Software\\Classes\\Tsrn.Url.Chess (Mac)";
const std::string openKeyFailed = "registry: RegOpenKeyExW() failed";

class Registration : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    Share({TestApplication("Chess", {"pgn", "fen"}, {"pgn"}, {"chess"})});
  }

  bool Register() { return RegisterHostApplication(folder(), Info("Chess"), true); }
};

TEST_F(Registration, WritesTheWholeHive) {
  EXPECT_TRUE(Register());
  const std::string claim = IsWindowsVersionOrLater(6, 1) ? R"(
[Software\Classes\.pgn\OpenWithList]
[Software\Classes\.pgn\OpenWithList\Chess (Mac).exe]
@="Chess (Mac).exe"
[Software\Classes\.pgn\OpenWithProgids]
"pgn_auto_file"=REG_NONE, 0 bytes)"
                                                          : R"(
@="pgn_auto_file"
[Software\Classes\.pgn\OpenWithList]
[Software\Classes\.pgn\OpenWithList\Chess (Mac).exe]
@="Chess (Mac).exe")";
  EXPECT_EQ(hive::Text(), R"hive([Software\Classes]
[Software\Classes\.fen]
[Software\Classes\.fen\OpenWithList]
[Software\Classes\.fen\OpenWithList\Chess (Mac).exe]
@="Chess (Mac).exe"
[Software\Classes\.pgn])hive" +
                              claim + R"hive(
[Software\Classes\Applications]
[Software\Classes\Applications\Chess (Mac).exe]
@=""
[Software\Classes\Applications\Chess (Mac).exe\shell]
[Software\Classes\Applications\Chess (Mac).exe\shell\open]
[Software\Classes\Applications\Chess (Mac).exe\shell\open\command]
@=""{folder}\Chess (Mac).exe" "%1""
[Software\Classes\Applications\Chess (Mac).exe\SupportedProtocols]
"chess"=""
[Software\Classes\Applications\Chess (Mac).exe\SupportedTypes]
".fen"=""
".pgn"=""
[Software\Classes\chess]
@="URL:chess (Mac)"
"URL Protocol"=""
[Software\Classes\pgn_auto_file]
@=""
[Software\Classes\pgn_auto_file\shell]
[Software\Classes\pgn_auto_file\shell\open]
[Software\Classes\pgn_auto_file\shell\open\command]
@=""{folder}\Chess (Mac).exe" "%1""
[Software\Classes\Tsrn.Url.Chess (Mac)]
[Software\Classes\Tsrn.Url.Chess (Mac)\shell]
[Software\Classes\Tsrn.Url.Chess (Mac)\shell\open]
[Software\Classes\Tsrn.Url.Chess (Mac)\shell\open\command]
@=""{folder}\Chess (Mac).exe" /url "%1""
[Software\RegisteredApplications]
"Chess (Mac)"="SOFTWARE\Tessarine\Tessarine Tools\MacApps\Chess (Mac)\Capabilities"
[SOFTWARE\Tessarine]
[SOFTWARE\Tessarine\Tessarine Tools]
[SOFTWARE\Tessarine\Tessarine Tools\MacApps]
[SOFTWARE\Tessarine\Tessarine Tools\MacApps\Chess (Mac)]
[SOFTWARE\Tessarine\Tessarine Tools\MacApps\Chess (Mac)\Capabilities]
[SOFTWARE\Tessarine\Tessarine Tools\MacApps\Chess (Mac)\Capabilities\URLAssociations]
"chess"="Tsrn.Url.Chess (Mac)"
)hive");
}

// One application's details as they change; what is there must be what a model makes of the same history.
TEST_F(Registration, FollowsTheDetails) {
  hive::PutMachineAssociation("velomiraopened", true);
  hive::PutText("HKLM\\Software\\Classes\\VelomiraTest.velomiraopened", "URL Protocol", "");
  const std::string declared = "VelomiraTest.velomiraopened";
  const struct {
    const char* what;
    Texts types, defaults, schemes;
    bool anyType, changes;
  } steps[] = {{"no types", {}, {"fen"}, {"chess"}, false, true},
               {"first types", {"pgn", "fen"}, {}, {"chess"}, false, false},
               {"a default that is offered", {"pgn", "fen"}, {"pgn"}, {"chess"}, false, false},
               {"types of the system, and any", {"fen", "Msi"}, {"BAT"}, {"chess"}, true, false},
               {"types of the system", {"Msi"}, {}, {}, false, false},
               {"a default of the machine", {"fen"}, {"velomiraopened"}, {}, false, false},
               {"a new default", {"fen"}, {"pdb", "velomiraopened"}, {}, false, true},
               {"no types again", {}, {}, {"chess", "fics", "fics", declared}, false, false},
               {"other schemes", {"fen"}, {}, {"fics"}, false, false},
               {"nothing new", {"fen"}, {}, {"fics"}, false, false}};
  host::GuestModel model(host::TakeSnapshot(), host::LookAround());
  for (const auto& step : steps) {
    SCOPED_TRACE(step.what);
    host::Application chess = TestApplication("Chess", step.types, step.defaults, step.schemes);
    chess.anyType = step.anyType;
    model.On(Share({chess}));
    EXPECT_EQ(Register(), step.changes);
    EXPECT_EQ(model.Compare(host::TakeSnapshot()), Texts());
  }
}

TEST_F(Registration, NamesThatWouldAddressOtherKeysAreSkipped) {
  const Items usable = Items()
                           .Text(host::textItem, "pgn")
                           .Text(host::defaultTypeItem, "fen")
                           .Text(host::schemeItem, "x.y-z+1");
  Items mixed = usable;
  for (const std::uint32_t type : {host::textItem, host::defaultTypeItem, host::schemeItem}) {
    for (const char* name : {"", "a\\b", "\\", "Applications\\x"}) mixed.Text(type, name);
  }
  for (const char* name : {".pgn", "PGN_AUTO_FILE", "TSRN.URL.Go (Mac)", "APPLICATIONS"})
    mixed.Text(host::schemeItem, name);
  ReplyWith(getDetails, usable.bytes());
  Register();
  const std::string before = hive::Text();
  ReplyWith(getDetails, mixed.bytes());
  Register();
  EXPECT_EQ(hive::Text(), before);
  ReplyWith(getDetails, Items().Text(host::textItem, "a\\b").bytes());
  Register();
  EXPECT_EQ(hive::Value(appKey, "NoOpenWith"), "\"\"");
}

TEST_F(Registration, EndsWhereAKeyIsMissing) {
  const struct {
    std::string missing;
    bool withSchemes;
    std::string raised, written, unwritten;
  } cases[] = {
      {tools, true, openKeyFailed, hive::classes + "pgn_auto_file", urlKey},
      {hive::registered, true, "", hive::registered, tools},
      {hive::registered, false, openKeyFailed, hive::classes + "pgn_auto_file", urlKey},
      {appKey, true, openKeyFailed, hive::classes + ".pgn\\OpenWithList", hive::classes + "pgn_auto_file"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.missing);
    host::PrepareGuest();
    Register();
    for (const std::string& key : {c.missing, hive::classes + ".pgn", hive::classes + "pgn_auto_file"})
      hive::Drop(key);
    hive::Drop(urlKey);
    Items details = Items().Text(host::textItem, "pgn").Text(host::defaultTypeItem, "pgn");
    if (c.withSchemes) details.Text(host::schemeItem, "chess");
    ReplyWith(getDetails, details.bytes());
    EXPECT_EQ(Raised([&] { Register(); }), c.raised);
    EXPECT_TRUE(hive::Has(c.written));
    EXPECT_EQ(hive::Has(c.unwritten), c.raised.empty());
  }
}

TEST_F(Registration, WhatTheHostRefusesIsNotRegistered) {
  Register();
  const std::string before = hive::Text();
  ReplyWith(getDetails, Items().Add(host::textItem, std::as_bytes(std::span("x", 1))).bytes());
  EXPECT_EQ(Raised([&] { Register(); }), "bit_box: string is not terminated");
  EXPECT_EQ(hive::Text(), before);
}

}  // namespace
