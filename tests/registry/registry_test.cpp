// Access to the registry: what is written to the byte, what counts as text, and which deletions go how far.
#include "registry/registry.h"

#include "registry/registry_registration.h"
#include "support/module_fixture.h"

namespace {

const std::string below = "HKCU\\Software\\Classes\\VelomiraTest";
const WideString path = TEXT("Software\\Classes\\VelomiraTest");

class RegistryAccess : public GuestTest {};

TEST_F(RegistryAccess, TextIsStoredWithItsNul) {
  for (const std::string text : {"text", "", "\xC3\xA9"}) {
    SetStringValue(HKEY_CURRENT_USER, path + TEXT("\\a\\b"), TEXT("V\\1"), Utf8ToWide(text));
    std::string stored;
    host::VisitKeys(below + "\\a\\b", [&](auto&, const std::string* value, DWORD type, auto data) {
      if (value != nullptr && *value == "V\\1" && type == REG_SZ)
        stored.assign(reinterpret_cast<const char*>(data.data()), data.size());
    });
    EXPECT_EQ(stored, host::Utf16Bytes(text));
  }
}

TEST_F(RegistryAccess, DeletionsNeedTheirParentOnly) {
  hive::PutText(below + "\\leaf", "v", "x");
  hive::PutKey(below + "\\branch\\twig");
  for (const auto deletion : {DeleteSubkey, DeleteTree, DeleteValue}) {
    EXPECT_EQ(Raised([&] { deletion(HKEY_CURRENT_USER, path + TEXT("\\none"), TEXT("leaf")); }),
              "registry: RegOpenKeyExW() failed");
    EXPECT_EQ(Raised([&] { deletion(HKEY_CURRENT_USER, path, TEXT("none")); }), "");
  }
  DeleteSubkey(HKEY_CURRENT_USER, path, TEXT("branch"));
  EXPECT_TRUE(hive::Has(below + "\\branch\\twig"));
  DeleteTree(HKEY_CURRENT_USER, path, TEXT("branch"));
  EXPECT_FALSE(hive::Has(below + "\\branch"));
  EXPECT_EQ(hive::Value(below + "\\leaf", "v"), "\"x\"");
  DeleteValue(HKEY_CURRENT_USER, path + TEXT("\\leaf"), TEXT("v"));
  EXPECT_EQ(hive::Value(below + "\\leaf", "v"), "none");
  DeleteSubkey(HKEY_CURRENT_USER, path, TEXT("leaf"));
  EXPECT_FALSE(hive::Has(below + "\\leaf"));
}

TEST_F(RegistryAccess, TextIsToldFromOtherValues) {
  const std::string noText = "registry: registry value is not a string";
  const struct {
    const char* what;
    DWORD type;
    std::string bytes;
    bool has;
    std::string got;  // the text, or what is raised
  } cases[] = {{"empty text", REG_SZ, std::string(2, '\0'), true, ""},
               {"text without NUL", REG_SZ, std::string("a\0b\0", 4), true, "ab"},
               {"text of no bytes", REG_SZ, "", false, ""},
               {"list", REG_MULTI_SZ, std::string("a\0\0\0b\0\0\0\0\0", 10), false, "a"},
               {"number", REG_DWORD, "wxyz", false, noText},
               {"256 units", REG_SZ, host::Utf16Bytes(std::string(255, 'x')), true, std::string(255, 'x')},
               {"257 units", REG_SZ, host::Utf16Bytes(std::string(256, 'x')), false, std::string(256, 'x')},
               {"512 units", REG_SZ, host::Utf16Bytes(std::string(511, 'x')), false, std::string(511, 'x')},
               {"513 units", REG_SZ, host::Utf16Bytes(std::string(512, 'x')), false,
                "registry: SHGetValueW() failed"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    hive::PutData(below, "v", c.type, c.bytes);
    WideString text = TEXT("untouched"), got;
    EXPECT_EQ(HasStringValue(HKEY_CURRENT_USER, path, TEXT("v"), &text), c.has);
    EXPECT_EQ(WideToUtf8(text), c.has ? c.got : "untouched");
    const std::string raised = Raised([&] { got = GetStringValue(HKEY_CURRENT_USER, path, TEXT("v")); });
    EXPECT_EQ(raised.empty() ? WideToUtf8(got) : raised, c.got);
  }
  EXPECT_FALSE(HasStringValue(HKEY_CURRENT_USER, path, TEXT("none")));
  hive::PutData(below, "v", REG_EXPAND_SZ, host::Utf16Bytes("%windir%"));
  const bool expands = Lacks(Gap::ExpandedText);
  EXPECT_EQ(GetStringValue(HKEY_CURRENT_USER, path, TEXT("v")) == TEXT("%windir%"), !expands);
  EXPECT_EQ(HasStringValue(HKEY_CURRENT_USER, path, TEXT("v")), expands);
}

// The class key contains what the access below it raises.
TEST_F(RegistryAccess, AKeyOrValueThatCannotBeWrittenRaises) {
  const WideString tooLong(20000, TEXT('k'));
  EXPECT_FALSE(RegisterClassKey(HKEY_CURRENT_USER, path, tooLong, nullptr));
  EXPECT_EQ(Raised([&] { SetStringValue(HKEY_CURRENT_USER, tooLong, TEXT(""), TEXT("")); }),
            "registry: RegCreateKeyEx() failed");
  EXPECT_EQ(Raised([&] { SetStringValue(HKEY_CURRENT_USER, path, tooLong, TEXT("")); }),
            "registry: RegSetValueEx() failed");
}

}  // namespace
