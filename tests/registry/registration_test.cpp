// Registration of one application: the whole hive after it, and what changes with the host's details, with
// what is there already, and with keys that are missing.
#include "registry/registry_registration.h"

#include <windows.h>

#include <shlwapi.h>

#include "common/windows_version.h"
#include "support/hive.h"
#include "support/module_fixture.h"
#include "support/raised.h"

namespace {

constexpr std::uint32_t getDetails = 104;
constexpr std::uint32_t documentType = 3, flag = 4, defaultType = 5, scheme = 6;
const std::string classes = "HKCU\\Software\\Classes\\";
const std::string appKey = "HKCU\\Software\\Classes\\Applications\\Chess (Mac).exe";
const std::string tools = "HKCU\\Software\\Tessarine\\Tessarine Tools";
const std::string registered = "HKCU\\Software\\RegisteredApplications";
const std::string urlKey = "HKCU\\Software\\Classes\\Tsrn.Url.Chess (Mac)";
const std::string openKeyFailed = "registry: RegOpenKeyExW() failed";

class Registration : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    host::Application chess = TestApplication("Chess");
    chess.documentTypes = {"pgn", "fen"};
    chess.defaultTypes = {"pgn"};
    chess.urlSchemes = {"chess"};
    Share({chess});
  }

  void Describe(Items details) { ReplyWith(getDetails, details.bytes()); }
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

TEST_F(Registration, ASecondRunChangesNothing) {
  EXPECT_TRUE(Register());
  const std::string first = hive::Text(), files = Files();
  EXPECT_FALSE(Register());
  EXPECT_EQ(hive::Text(), first);
  EXPECT_EQ(Files(), files);
}

TEST_F(Registration, ANewClaimCountsOnceWhereThereWasNoOffer) {
  Describe(Items().Text(documentType, "fen"));
  EXPECT_TRUE(Register());
  EXPECT_FALSE(Register());
  const Items claim = Items().Text(documentType, "fen").Text(defaultType, "pgn").Text(defaultType, "exe");
  Describe(claim);
  EXPECT_TRUE(Register());
  Describe(claim);
  EXPECT_FALSE(Register());
  EXPECT_EQ(hive::Value(classes + "pgn_auto_file", ""), "\"\"");
  // A black-listed type gets no offer and no ProgID, but its name is still added.
  EXPECT_FALSE(hive::Has(classes + "exe_auto_file"));
  EXPECT_FALSE(hive::Has(classes + ".exe\\OpenWithList"));
}

TEST_F(Registration, ATypeThatIsOpenedAlreadyIsNotClaimed) {
  const hive::MachineAssociation opened("velomiraopened", true);
  Describe(Items().Text(documentType, "fen").Text(defaultType, "velomiraopened"));
  EXPECT_TRUE(Register());
  EXPECT_FALSE(hive::Has(classes + ".velomiraopened"));
  EXPECT_FALSE(hive::Has(classes + "velomiraopened_auto_file"));
}

TEST_F(Registration, WithoutTypesItIsNotOfferedAnywhere) {
  EXPECT_TRUE(Register());
  Describe(Items().Text(defaultType, "fen").Text(scheme, "chess"));
  EXPECT_FALSE(Register());
  EXPECT_EQ(hive::Value(appKey, "NoOpenWith"), "\"\"");
  EXPECT_EQ(hive::Value(appKey + "\\SupportedTypes", ".pgn"), "\"\"");
  EXPECT_FALSE(hive::Has(classes + "fen_auto_file"));
  Describe(Items().Text(documentType, "fen").Text(scheme, "chess"));
  Register();
  EXPECT_EQ(hive::Value(appKey, "NoOpenWith"), "none");
  EXPECT_EQ(hive::Value(appKey + "\\SupportedTypes", ".pgn"), "none");
  EXPECT_EQ(hive::Value(appKey + "\\SupportedTypes", ".fen"), "\"\"");
}

TEST_F(Registration, AnyTypeListsNoneButOffersAll) {
  EXPECT_TRUE(Register());
  Describe(Items().Text(documentType, "fen").Number(flag, 1).Text(documentType, "Msi"));
  EXPECT_FALSE(Register());
  EXPECT_FALSE(hive::Has(appKey + "\\SupportedTypes"));
  EXPECT_TRUE(hive::Has(classes + ".fen\\OpenWithList\\Chess (Mac).exe"));
  EXPECT_FALSE(hive::Has(classes + ".Msi"));
  Describe(Items().Text(documentType, "Msi"));
  Register();
  EXPECT_EQ(hive::Value(appKey + "\\SupportedTypes", ".Msi"), "\"\"");
}

TEST_F(Registration, TypesAndSchemesThatWouldNameOtherKeysAreSkipped) {
  Items details;
  for (const std::uint32_t type : {documentType, defaultType, scheme}) {
    details.Text(type, "").Text(type, "a\\b").Text(type, "\\").Text(type, "Applications\\x");
  }
  Describe(details);
  EXPECT_TRUE(Register());
  EXPECT_EQ(hive::Value(appKey, "NoOpenWith"), "\"\"");
  EXPECT_EQ(hive::Value(classes.substr(0, classes.size() - 1), "URL Protocol"), "none");
  for (const char* key : {".", ".a", "_auto_file", "a", "Applications\\x"}) {
    EXPECT_FALSE(hive::Has(classes + key)) << key;
  }
  EXPECT_FALSE(hive::Has(urlKey));
  details = Items();
  for (const char* name : {".pgn", "PGN_auto_file", "Tsrn.Url.Go (Mac)", "applications"})
    details.Text(scheme, name);
  Describe(details);
  Register();
  EXPECT_FALSE(hive::Has(urlKey));
  for (const char* key : {".pgn", "PGN_auto_file", "Tsrn.Url.Go (Mac)", "Applications"}) {
    EXPECT_EQ(hive::Value(classes + key, "URL Protocol"), "none") << key;
  }
  Describe(
      Items().Text(documentType, "a\\b").Text(documentType, "pgn").Text(scheme, "").Text(scheme, "x.y-z+1"));
  Register();
  EXPECT_EQ(hive::Value(appKey, "NoOpenWith"), "none");
  EXPECT_EQ(hive::Value(classes + "x.y-z+1", ""), "\"URL:x.y-z+1 (Mac)\"");
}

TEST_F(Registration, ARefreshForgetsSchemesButKeepsTheirKeys) {
  EXPECT_TRUE(Register());
  hive::PutText(urlKey + "\\shell\\open\\command", "", "old");
  Describe(Items().Text(documentType, "pgn").Text(scheme, "fics").Text(scheme, "fics"));
  Register();
  const std::string associations = tools + "\\MacApps\\Chess (Mac)\\Capabilities\\URLAssociations";
  EXPECT_EQ(hive::Value(associations, "chess"), "none");
  EXPECT_EQ(hive::Value(associations, "fics"), "\"Tsrn.Url.Chess (Mac)\"");
  EXPECT_EQ(hive::Value(appKey + "\\SupportedProtocols", "chess"), "none");
  EXPECT_EQ(hive::Value(urlKey + "\\shell\\open\\command", ""),
            "\"\"" + WideToUtf8(Launcher("Chess")) + "\" /url \"%1\"\"");
  EXPECT_TRUE(hive::Has(classes + "chess"));

  Describe(Items().Text(documentType, "pgn"));
  Register();
  EXPECT_FALSE(hive::Has(urlKey));
  EXPECT_FALSE(hive::Has(tools + "\\MacApps\\Chess (Mac)"));
  EXPECT_FALSE(hive::Has(appKey + "\\SupportedProtocols"));
  EXPECT_EQ(hive::Value(registered, "Chess (Mac)"), "none");
  EXPECT_TRUE(hive::Has(classes + "chess"));
}

// The machine's declarations are seen through HKEY_CLASSES_ROOT on every platform.
TEST_F(Registration, ASchemeOfSomebodyElseKeepsItsKey) {
  const hive::MachineAssociation machine("velomirascheme", false);
  const WideString key = TEXT("Software\\Classes\\VelomiraTest.velomirascheme");
  const struct {
    const char* what;
    DWORD type;
    bool declared;
  } cases[] = {{"no text", REG_DWORD, false}, {"text", REG_SZ, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    hive::Drop(classes + "VelomiraTest.velomirascheme");
    SHSetValueW(HKEY_LOCAL_MACHINE, key.c_str(), TEXT("URL Protocol"), c.type, TEXT("\0"), 4);
    Describe(Items().Text(scheme, "VelomiraTest.velomirascheme"));
    Register();
    EXPECT_EQ(hive::Has(classes + "VelomiraTest.velomirascheme"), !c.declared);
    EXPECT_EQ(hive::Value(appKey + "\\SupportedProtocols", "VelomiraTest.velomirascheme"), "\"\"");
  }
}

TEST_F(Registration, AMissingParentEndsItAtItsStep) {
  const Items noSchemes = Items().Text(documentType, "pgn").Text(defaultType, "pgn");
  const Items schemes = Items(noSchemes).Text(scheme, "chess");
  const Items noTypes;
  const struct {
    const char* what;
    Items details;
    std::string missing;
    const char* raised;
    std::string written, unwritten;  // the last key before the step, and one that would come after it
  } cases[] = {
      {"tools, with schemes", schemes, tools, "registry: RegOpenKeyExW() failed", classes + "pgn_auto_file",
       urlKey},
      {"tools, without types", noTypes, tools, "registry: RegOpenKeyExW() failed", appKey, urlKey},
      {"registered applications, without schemes", noSchemes, registered, "registry: RegOpenKeyExW() failed",
       classes + "pgn_auto_file", urlKey},
      {"registered applications, with schemes", schemes, registered, "", registered, classes + "fics"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    InstallTools();
    for (const std::string& key : {appKey, urlKey, classes + "pgn_auto_file", classes + "chess"})
      hive::Drop(key);
    hive::PutKey(urlKey + "\\old");
    hive::Drop(c.missing);
    Describe(c.details);
    EXPECT_EQ(Raised([&] { RegisterHostApplication(folder(), Info("Chess"), false); }), c.raised);
    EXPECT_TRUE(hive::Has(c.written));
    EXPECT_FALSE(hive::Has(c.unwritten + "\\shell"));
    // Only what has got past the step on the tools' key clears the old ProgID.
    EXPECT_EQ(hive::Has(urlKey + "\\old"), c.missing == tools || *c.raised == 0);
  }
}

TEST_F(Registration, ALostApplicationKeyEndsItWhereTypesAreRefreshed) {
  EXPECT_TRUE(Register());
  hive::Drop(appKey);
  EXPECT_EQ(Raised([&] { Register(); }), openKeyFailed);
  EXPECT_FALSE(hive::Has(appKey));
  Describe(Items());
  EXPECT_EQ(Raised([&] { Register(); }), "");
  EXPECT_EQ(hive::Value(appKey, "NoOpenWith"), "\"\"");
}

TEST_F(Registration, WhatTheHostRefusesIsNotRegistered) {
  EXPECT_EQ(Raised([&] { RegisterHostApplication(folder(), Info("Unknown"), true); }),
            "mainfo: mainfo: command failed");
  Register();
  const std::string before = hive::Text();
  Describe(Items().Add(documentType, std::as_bytes(std::span("x", 1))));
  EXPECT_EQ(Raised([&] { Register(); }), "bit_box: string is not terminated");
  EXPECT_EQ(hive::Text(), before);
}

}  // namespace
