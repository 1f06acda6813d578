// Access to the registry: what is written to the byte, what counts as text, and which deletions go how far.
#include "registry/registry.h"

#include <windows.h>

#include "registry/registry_registration.h"
#include "support/gaps.h"
#include "support/guest.h"
#include "support/hive.h"
#include "support/raised.h"

namespace {

const std::string below = "HKCU\\Software\\Classes\\VelomiraTest";
const WideString path = TEXT("Software\\Classes\\VelomiraTest");

std::string BytesOf(const WideString& units) {
  return {reinterpret_cast<const char*>(units.data()), units.size() * sizeof(WCHAR)};
}

class RegistryAccess : public GuestTest {};

TEST_F(RegistryAccess, TextIsStoredWithItsNul) {
  const struct {
    const WCHAR *path, *name, *text;
  } cases[] = {{TEXT("\\a\\b\\c"), TEXT(""), TEXT("")},
               {TEXT("\\a"), TEXT("v"), TEXT("text")},
               {TEXT("\\a"), TEXT("v"), TEXT("")},
               {TEXT("\\a"), TEXT("V\\1"), TEXT("\u00e9")}};
  for (const auto& c : cases) {
    const WideString full = path + c.path, text = c.text;
    SetStringValue(HKEY_CURRENT_USER, full, c.name, text);
    BYTE data[64]{};
    DWORD type = REG_NONE, size = sizeof data;
    const Key key = OpenKey(HKEY_CURRENT_USER, full);
    ASSERT_EQ(RegQueryValueExW(key.get(), c.name, nullptr, &type, data, &size), ERROR_SUCCESS);
    EXPECT_EQ(type, REG_SZ);
    ASSERT_EQ(size, (text.size() + 1) * sizeof(WCHAR));
    EXPECT_EQ(WideString(reinterpret_cast<const WCHAR*>(data)), text);
  }
}

TEST_F(RegistryAccess, DeletionsNeedTheirParentOnly) {
  const auto arrange = [] {
    hive::PutText(below + "\\leaf", "v", "x");
    hive::PutKey(below + "\\branch\\twig");
  };
  const struct {
    const char* what;
    void (*run)(HKEY, const WideString&, const WideString&);
    const WCHAR *at, *name;
    const char* raised;
    const char* gone;  // of the keys and values arranged
  } cases[] = {
      {"leaf", DeleteSubkey, TEXT(""), TEXT("leaf"), "", "leaf v "},
      {"branch", DeleteSubkey, TEXT(""), TEXT("branch"), "", ""},
      {"missing subkey", DeleteSubkey, TEXT(""), TEXT("none"), "", ""},
      {"missing parent", DeleteSubkey, TEXT("\\none"), TEXT("leaf"), "registry: RegOpenKeyExW() failed", ""},
      {"tree", DeleteTree, TEXT(""), TEXT("branch"), "", "branch "},
      {"missing tree", DeleteTree, TEXT(""), TEXT("none"), "", ""},
      {"tree of a missing parent", DeleteTree, TEXT("\\none"), TEXT("x"), "registry: RegOpenKeyExW() failed",
       ""},
      {"value", DeleteValue, TEXT("\\leaf"), TEXT("v"), "", "v "},
      {"missing value", DeleteValue, TEXT("\\leaf"), TEXT("none"), "", ""},
      {"value of a missing key", DeleteValue, TEXT("\\none"), TEXT("v"), "registry: RegOpenKeyExW() failed",
       ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    arrange();
    EXPECT_EQ(Raised([&] { c.run(HKEY_CURRENT_USER, path + c.at, c.name); }), c.raised);
    std::string gone;
    if (!hive::Has(below + "\\leaf")) gone += "leaf ";
    if (hive::Value(below + "\\leaf", "v") == "none") gone += "v ";
    if (!hive::Has(below + "\\branch\\twig")) gone += "branch ";
    EXPECT_EQ(gone, c.gone);
  }
}

TEST_F(RegistryAccess, TextIsToldFromOtherValues) {
  const struct {
    const char* what;
    DWORD type;
    WideString units;
    bool has;
    const char* got;  // the text, or what is raised
  } cases[] = {
      {"text", REG_SZ, WideString(TEXT("text\0"), 5), true, "text"},
      {"empty text", REG_SZ, WideString(1, 0), true, ""},
      {"text with a NUL inside", REG_SZ, WideString(TEXT("a\0b\0"), 4), true, "a"},
      {"text of no bytes", REG_SZ, {}, false, ""},
      {"list", REG_MULTI_SZ, WideString(TEXT("one\0two\0\0"), 9), false, "one"},
      {"number", REG_DWORD, TEXT("xy"), false, "registry: registry value is not a string"},
      {"bytes", REG_BINARY, TEXT("xy"), false, "registry: registry value is not a string"},
      {"256 units", REG_SZ, WideString(255, TEXT('x')) + WideString(1, 0), true, nullptr},
      {"300 units", REG_SZ, WideString(299, TEXT('x')) + WideString(1, 0), false, nullptr},
      {"512 units", REG_SZ, WideString(511, TEXT('x')) + WideString(1, 0), false, nullptr},
      {"513 units", REG_SZ, WideString(512, TEXT('x')) + WideString(1, 0), false,
       "registry: SHGetValueW() failed"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    hive::PutData(below, "v", c.type, BytesOf(c.units));
    WideString text = TEXT("untouched");
    EXPECT_EQ(HasStringValue(HKEY_CURRENT_USER, path, TEXT("v"), &text), c.has);
    EXPECT_EQ(HasStringValue(HKEY_CURRENT_USER, path, TEXT("v")), c.has);
    const std::string longText(c.units.empty() ? 0 : c.units.size() - 1, 'x');
    const std::string expected = c.got != nullptr ? c.got : longText;
    EXPECT_EQ(WideToUtf8(text), c.has ? expected : "untouched");
    WideString got;
    const std::string raised = Raised([&] { got = GetStringValue(HKEY_CURRENT_USER, path, TEXT("v")); });
    EXPECT_EQ(raised.empty() ? WideToUtf8(got) : raised, expected);
  }
  EXPECT_FALSE(HasStringValue(HKEY_CURRENT_USER, path, TEXT("none")));
  EXPECT_FALSE(HasStringValue(HKEY_CURRENT_USER, TEXT("Software\\None"), TEXT("v")));
  EXPECT_EQ(Raised([] { GetStringValue(HKEY_CURRENT_USER, path, TEXT("none")); }),
            "registry: SHGetValueW() failed");
}

TEST_F(RegistryAccess, ExpandableTextIsNoPlainTextAndStaysUnexpanded) {
  hive::PutData(below, "v", REG_EXPAND_SZ, host::Utf16Bytes("%windir%"));
  const WideString text = GetStringValue(HKEY_CURRENT_USER, path, TEXT("v"));
  EXPECT_EQ(text == TEXT("%windir%"), !Lacks(Gap::ExpandedText));
  EXPECT_EQ(HasStringValue(HKEY_CURRENT_USER, path, TEXT("v")), Lacks(Gap::ExpandedText));
}

TEST_F(RegistryAccess, ApplicationKeyNamesTheLatestLauncher) {
  hive::PutText("HKCU\\Software\\Classes\\Applications\\Chess (Mac).exe", "NoOpenWith", "kept");
  RegisterApplication(TEXT("Chess (Mac)"), TEXT("C:\\old\\Chess (Mac).exe"));
  RegisterApplication(TEXT("Chess (Mac)"), TEXT("C:\\new\\Chess (Mac).exe"));
  EXPECT_EQ(hive::Text(),
            "[Software\\Classes]\n"
            "[Software\\Classes\\Applications]\n"
            "[Software\\Classes\\Applications\\Chess (Mac).exe]\n"
            "@=\"\"\n"
            "\"NoOpenWith\"=\"kept\"\n"
            "[Software\\Classes\\Applications\\Chess (Mac).exe\\shell]\n"
            "[Software\\Classes\\Applications\\Chess (Mac).exe\\shell\\open]\n"
            "[Software\\Classes\\Applications\\Chess (Mac).exe\\shell\\open\\command]\n"
            "@=\"\"C:\\new\\Chess (Mac).exe\" \"%1\"\"\n");
}

TEST_F(RegistryAccess, ClassKeyIsContained) {
  const WideString command = TEXT("run");
  EXPECT_TRUE(RegisterClassKey(HKEY_CURRENT_USER, path + TEXT("\\"), TEXT("class"), nullptr));
  EXPECT_FALSE(hive::Has(below + "\\class\\shell"));
  EXPECT_TRUE(RegisterClassKey(HKEY_CURRENT_USER, path + TEXT("\\"), TEXT("class"), &command));
  EXPECT_EQ(hive::Value(below + "\\class\\shell\\open\\command", ""), "\"run\"");
  const WideString tooLong(300, TEXT('k'));
  EXPECT_FALSE(RegisterClassKey(HKEY_CURRENT_USER, path + TEXT("\\"), tooLong, nullptr));
  EXPECT_EQ(Raised([&] { SetStringValue(HKEY_CURRENT_USER, tooLong, TEXT(""), TEXT("")); }),
            "registry: RegCreateKeyEx() failed");
}

}  // namespace
