// What only the native registry shows: its text form, forbidden keys, the merged classes, the 32-bit view,
// and associations, where other implementations differ.
#include <platform/control.h>
#include <shlwapi.h>

#include <cstring>
#include <functional>
#include <stdexcept>

#include "support/guest.h"

namespace {

constexpr REGSAM all = KEY_ALL_ACCESS;

class RegistryNativeTest : public GuestTest {
 protected:
  static HKEY Create(HKEY from, const WCHAR* path, REGSAM access = all) {
    HKEY key = nullptr;
    EXPECT_EQ(CreateResult(from, path, access, &key), 0);
    return key;
  }
  static LONG CreateResult(HKEY from, const WCHAR* path, REGSAM access, HKEY* key) {
    return RegCreateKeyExW(from, path, 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr, key, nullptr);
  }
  static LONG OpenResult(HKEY from, const WCHAR* path, REGSAM access = KEY_READ) {
    HKEY key = nullptr;
    const LONG error = RegOpenKeyExW(from, path, 0, access, &key);
    if (key) RegCloseKey(key);
    return error;
  }
  static void Set(HKEY from, const WCHAR* path, const WCHAR* name, const WideString& text,
                  DWORD type = REG_SZ) {
    EXPECT_EQ(SHSetValueW(from, path, name, type, text.c_str(), static_cast<DWORD>((text.size() + 1) * 2)),
              0);
  }
  // The text, or its error in angle brackets.
  static std::string Get(HKEY from, const WCHAR* path, const WCHAR* name) {
    WCHAR text[64] = {};
    DWORD size = sizeof(text);
    const LONG error = SHGetValueW(from, path, name, nullptr, text, &size);
    return error ? "<" + std::to_string(error) + ">" : WideToUtf8(text);
  }
  static std::string Subkeys(HKEY key) {
    std::string names;
    WCHAR name[256];
    DWORD length = 256;
    for (DWORD i = 0; !RegEnumKeyExW(key, i, name, &length, nullptr, nullptr, nullptr, nullptr); ++i) {
      names += WideToUtf8({name, length}) + " ";
      length = 256;
    }
    return names;
  }
};

TEST_F(RegistryNativeTest, TextIsReadableAndExact) {
  platform::LoadRegistry("");
  const WCHAR* path = TEXT("^ key]\t");
  Set(HKEY_CURRENT_USER, path, nullptr, TEXT("\"C:\\a b.exe\" \"%1\""));
  Set(HKEY_CURRENT_USER, path, TEXT("q\"\\=\n"), TEXT("caf\u00e9"));
  Set(HKEY_CURRENT_USER, path, TEXT("e"), TEXT("%A%"), REG_EXPAND_SZ);
  EXPECT_EQ(SHSetValueW(HKEY_CURRENT_USER, path, TEXT("none"), REG_NONE, nullptr, 0), 0);
  EXPECT_EQ(platform::SaveRegistry(),
            "[HKEY_CURRENT_USER]\n\n[HKEY_CURRENT_USER\\^005e key]^0009]\n"
            "@=\"\\\"C:\\\\a b.exe\\\" \\\"%1\\\"\"\n"
            "\"e\"=hex(2):25,00,41,00,25,00,00,00\n"
            "\"none\"=hex(0):\n"
            "\"q\\\"\\\\=\\x000a\"=\"caf\u00e9\"\n\n[HKEY_LOCAL_MACHINE]\n");
}

// Every 16-bit unit but the separator and NUL in names, every one in text, and data that is no proper text.
TEST_F(RegistryNativeTest, LoadingWhatWasSavedChangesNothing) {
  WideString every;
  for (unsigned unit = 0x10000; unit-- > 1;) every += static_cast<WCHAR>(unit);
  for (std::size_t i = 0; i < every.size(); i += 100) {
    WideString name = every.substr(i, 100) + TEXT("x");
    std::erase(name, u'\\');
    Set(HKEY_CURRENT_USER, (TEXT("K\\") + name).c_str(), name.c_str(), every.substr(i, 100));
  }
  const WCHAR odd[] = {0xD800, 0, 0xDC00, 0xD83D, 0xDE00, '\\', 'x', '"', 0};
  for (DWORD type : {REG_SZ, REG_EXPAND_SZ, REG_BINARY, 0xFFFFFFFFu}) {
    for (DWORD size = 0; size <= sizeof(odd); ++size) {
      const WCHAR name[] = {static_cast<WCHAR>('a' + type % 16), static_cast<WCHAR>('A' + size), 0};
      SHSetValueW(HKEY_LOCAL_MACHINE, TEXT("odd"), name, type, odd, size);
    }
  }
  const std::string saved = platform::SaveRegistry();
  platform::ResetRegistry();
  platform::LoadRegistry(saved);
  EXPECT_EQ(platform::SaveRegistry(), saved);
  DWORD type = 0;
  WCHAR text[9] = {};
  DWORD size = sizeof(text);
  EXPECT_EQ(SHGetValueW(HKEY_LOCAL_MACHINE, TEXT("odd"), TEXT("bS"), &type, text, &size), 0);
  EXPECT_EQ(type, REG_SZ);
  EXPECT_EQ(std::memcmp(text, odd, sizeof(odd)), 0);
  for (std::size_t i = 0; i < every.size(); i += 100) {
    WideString name = every.substr(i, 100) + TEXT("x");
    std::erase(name, u'\\');
    WCHAR stored[101] = {};
    size = sizeof(stored) + 2;
    EXPECT_EQ(
        SHGetValueW(HKEY_CURRENT_USER, (TEXT("K\\") + name).c_str(), name.c_str(), nullptr, stored, &size),
        0);
    EXPECT_EQ(WideString(stored), every.substr(i, 100)) << i;
  }
}

TEST_F(RegistryNativeTest, AMalformedTextIsRefusedAtItsLineAndLeavesTheRegistry) {
  Set(HKEY_CURRENT_USER, TEXT("k"), TEXT("v"), TEXT("kept"));
  const std::string before = platform::SaveRegistry();
  HKEY key = Create(HKEY_CURRENT_USER, TEXT("k"));
  const std::string good = "[HKEY_CURRENT_USER]\n\n[HKEY_CURRENT_USER\\a]\n\"v\"=\"1\"\n";
  const struct {
    std::string text, message;
  } cases[] = {
      {"\"v\"=\"1\"\n", "line 1: malformed: \"v\"=\"1\""},
      {good + "Windows Registry Editor Version 5.00",
       "line 5: malformed: Windows Registry Editor Version 5.00"},
      {"[HKEY_USERS]", "line 1: malformed: [HKEY_USERS]"},
      {good + "\n[HKEY_CURRENT_USER\\]", "line 6: malformed: [HKEY_CURRENT_USER\\]"},
      {good + "[HKEY_CURRENT_USER\\b", "line 5: malformed: [HKEY_CURRENT_USER\\b"},
      {good + "\"v\"=\"1", "line 5: malformed: \"v\"=\"1"},
      {good + "@=\"1\"2", "line 5: malformed: @=\"1\"2"},
      {good + "@=dword:1", "line 5: malformed: @=dword:1"},
      {good + "@=hex(123456789):", "line 5: malformed: @=hex(123456789):"},
      {good + "@=hex(3):0g", "line 5: malformed: @=hex(3):0g"},
      {good + "@=hex(3):00,", "line 5: malformed: @=hex(3):00,"},
      {std::string("\x1b\0", 2) + std::string(100, 'x'),
       "line 1: malformed: ^001b^0000" + std::string(58, 'x')},
  };
  for (const auto& c : cases) {
    try {
      platform::LoadRegistry(c.text);
      ADD_FAILURE() << c.text;
    } catch (const std::invalid_argument& refused) {
      EXPECT_EQ(refused.what(), c.message);
    }
    EXPECT_EQ(platform::SaveRegistry(), before);
  }
  EXPECT_EQ(Get(key, nullptr, TEXT("v")), "kept") << "open handles live on";
  RegCloseKey(key);
}

TEST_F(RegistryNativeTest, ForbiddenKeysFailEveryWayIn) {
  RegCloseKey(Create(HKEY_CURRENT_USER, TEXT("Tree\\a\\inner")));
  RegCloseKey(Create(HKEY_CURRENT_USER, TEXT("Tree\\b")));
  platform::DenyKey("HKEY_CURRENT_USER\\tree\\A", true);
  platform::DenyKey("HKEY_CURRENT_USER\\Tree\\future", true);
  HKEY key = nullptr;
  EXPECT_EQ(OpenResult(HKEY_CURRENT_USER, TEXT("Tree\\a")), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenResult(HKEY_CURRENT_USER, TEXT("Tree\\a\\inner")), ERROR_SUCCESS);
  EXPECT_EQ(CreateResult(HKEY_CURRENT_USER, TEXT("Tree\\a"), all, &key), ERROR_ACCESS_DENIED);
  EXPECT_EQ(CreateResult(HKEY_CURRENT_USER, TEXT("Tree\\future\\below"), all, &key), ERROR_ACCESS_DENIED);
  EXPECT_EQ(SHSetValueW(HKEY_CURRENT_USER, TEXT("Tree\\future"), nullptr, REG_SZ, nullptr, 0),
            ERROR_ACCESS_DENIED);
  EXPECT_EQ(Get(HKEY_CURRENT_USER, TEXT("Tree\\a"), TEXT("v")), "<5>");
  EXPECT_EQ(RegQueryValueW(HKEY_CURRENT_USER, TEXT("Tree\\a"), nullptr, nullptr), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegDeleteKeyW(HKEY_CURRENT_USER, TEXT("Tree\\a")), ERROR_ACCESS_DENIED);
  EXPECT_EQ(SHDeleteKeyW(HKEY_CURRENT_USER, TEXT("Tree")), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenResult(HKEY_CURRENT_USER, TEXT("Tree\\a\\inner")), ERROR_SUCCESS);
  EXPECT_EQ(OpenResult(HKEY_CURRENT_USER, TEXT("Tree\\future")), ERROR_FILE_NOT_FOUND);

  platform::DenyKey("HKEY_CURRENT_USER", true);
  EXPECT_EQ(RegOpenCurrentUser(KEY_READ, &key), ERROR_ACCESS_DENIED);
  platform::DenyKey("HKEY_CURRENT_USER\\Tree\\a", false);
  EXPECT_EQ(SHDeleteKeyW(HKEY_CURRENT_USER, TEXT("Tree")), ERROR_SUCCESS);
}

TEST_F(RegistryNativeTest, ADefaultThatIsNoTextIsInvalidData) {
  Set(HKEY_CURRENT_USER, TEXT("k"), nullptr, TEXT("text"), REG_DWORD);
  EXPECT_EQ(RegQueryValueW(HKEY_CURRENT_USER, TEXT("k"), nullptr, nullptr), ERROR_INVALID_DATA);
}

TEST_F(RegistryNativeTest, ClassesAreTheUsersOverTheMachines) {
  const WCHAR *user = TEXT("Software\\Classes\\both"), *machine = TEXT("SOFTWARE\\Classes\\Both");
  Set(HKEY_CURRENT_USER, user, TEXT("v"), TEXT("user"));
  Set(HKEY_CURRENT_USER, user, TEXT("user only"), TEXT("u"));
  Set(HKEY_LOCAL_MACHINE, machine, TEXT("v"), TEXT("machine"));
  Set(HKEY_LOCAL_MACHINE, machine, TEXT("machine only"), TEXT("m"));
  RegCloseKey(Create(HKEY_CURRENT_USER, TEXT("Software\\Classes\\both\\b")));
  RegCloseKey(Create(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\Classes\\both\\a")));
  RegCloseKey(Create(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\Classes\\both\\B")));
  RegCloseKey(Create(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\Classes\\machine")));
  EXPECT_EQ(Get(HKEY_CLASSES_ROOT, TEXT("both"), TEXT("v")), "user");
  EXPECT_EQ(Get(HKEY_CLASSES_ROOT, TEXT("both"), TEXT("machine only")), "m");
  EXPECT_EQ(Get(HKEY_CLASSES_ROOT, TEXT("both"), TEXT("user only")), "u");
  EXPECT_EQ(Get(HKEY_CLASSES_ROOT, TEXT("neither"), TEXT("v")), "<2>");
  EXPECT_EQ(OpenResult(HKEY_CLASSES_ROOT, TEXT("both\\a")), ERROR_SUCCESS);
  EXPECT_EQ(Subkeys(HKEY_CLASSES_ROOT), "both machine ");
  HKEY key = nullptr;
  ASSERT_EQ(RegOpenKeyExW(HKEY_CLASSES_ROOT, TEXT("both"), 0, KEY_READ, &key), 0);
  EXPECT_EQ(Subkeys(key), "a b ");
  DWORD subkeys = 0, values = 0;
  RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values, nullptr, nullptr,
                   nullptr, nullptr);
  EXPECT_EQ(subkeys, 2u);
  EXPECT_EQ(values, 3u);
  EXPECT_EQ(SHDeleteKeyW(HKEY_CURRENT_USER, user), 0);
  EXPECT_EQ(Subkeys(key), "a B ");
  RegCloseKey(key);
  EXPECT_EQ(Get(HKEY_CLASSES_ROOT, TEXT("both"), TEXT("v")), "machine");
  EXPECT_DEATH(SHSetValueW(HKEY_CLASSES_ROOT, TEXT("both"), nullptr, REG_SZ, nullptr, 0), "not supported");
}

TEST_F(RegistryNativeTest, AssociationsFollowTheExtensionsProgId) {
  constexpr HRESULT none = static_cast<HRESULT>(0x80070483);
  const auto set = [](HKEY root, const WideString& below, const WideString& text) {
    Set(root, (TEXT("Software\\Classes\\") + below).c_str(), nullptr, text);
  };
  set(HKEY_CURRENT_USER, TEXT(".empty"), TEXT(""));
  set(HKEY_CURRENT_USER, TEXT(".dangling"), TEXT("nowhere"));
  set(HKEY_CURRENT_USER, TEXT(".bare"), TEXT("bare_file"));
  set(HKEY_LOCAL_MACHINE, TEXT("bare_file"), TEXT(""));
  set(HKEY_LOCAL_MACHINE, TEXT(".full"), TEXT("full_file"));
  set(HKEY_CURRENT_USER, TEXT("full_file\\shell\\open\\command"), TEXT("\"C:\\a b.exe\" \"%1\""));
  set(HKEY_CURRENT_USER, TEXT(".plain"), TEXT("plain_file"));
  set(HKEY_CURRENT_USER, TEXT("plain_file\\shell\\open\\command"), TEXT("C:\\a.exe %1"));
  EXPECT_EQ(SHSetValueW(HKEY_CURRENT_USER, TEXT("Software\\Classes\\.offered\\OpenWithProgids"),
                        TEXT("full_file"), REG_NONE, nullptr, 0),
            0);
  const struct {
    const WCHAR* extension;
    DWORD progId, executable;  // lengths with the NUL; 0: no association
  } cases[] = {
      {TEXT(".none"), 0, 0},  {TEXT(".empty"), 0, 0},  {TEXT(".dangling"), 0, 0}, {TEXT(".offered"), 0, 0},
      {TEXT(".bare"), 10, 0}, {TEXT(".FULL"), 10, 11}, {TEXT(".plain"), 11, 9},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(WideToUtf8(c.extension));
    const struct {
      ASSOCSTR string;
      DWORD expected;
    } queries[] = {{ASSOCSTR_PROGID, c.progId}, {ASSOCSTR_EXECUTABLE, c.executable}};
    for (const auto& query : queries) {
      DWORD length = 0xFFFFFFFF;
      EXPECT_EQ(AssocQueryStringW(ASSOCF_INIT_IGNOREUNKNOWN | ASSOCF_NOTRUNCATE, query.string, c.extension,
                                  nullptr, nullptr, &length),
                query.expected ? S_FALSE : none);
      EXPECT_EQ(length, query.expected ? query.expected : 0xFFFFFFFF);
    }
  }
}

TEST_F(RegistryNativeTest, The32BitViewHasItsOwnSoftware) {
  constexpr REGSAM view32 = KEY_QUERY_VALUE | KEY_WOW64_32KEY;
  Set(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\Wow6432Node\\T"), TEXT("v"), TEXT("32"));
  Set(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\U"), nullptr, TEXT(""));
  Set(HKEY_CURRENT_USER, TEXT("Software\\V"), nullptr, TEXT(""));
  const struct {
    HKEY root;
    const WCHAR* path;
    REGSAM access;
    LONG error;
  } cases[] = {
      {HKEY_LOCAL_MACHINE, TEXT("Software\\T"), view32, ERROR_SUCCESS},
      {HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\wow6432node\\T"), view32, ERROR_SUCCESS},
      {HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\T"), KEY_QUERY_VALUE, ERROR_FILE_NOT_FOUND},
      {HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\T"), KEY_QUERY_VALUE | KEY_WOW64_64KEY, ERROR_FILE_NOT_FOUND},
      {HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\U"), view32, ERROR_FILE_NOT_FOUND},
      {HKEY_CURRENT_USER, TEXT("Software\\V"), view32, ERROR_SUCCESS},
  };
  for (const auto& c : cases) EXPECT_EQ(OpenResult(c.root, c.path, c.access), c.error) << WideToUtf8(c.path);
  HKEY software = nullptr;
  ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE"), 0, KEY_READ | KEY_WOW64_32KEY, &software), 0);
  EXPECT_EQ(Get(software, TEXT("T"), TEXT("v")), "32");
  RegCloseKey(software);
  RegCloseKey(Create(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\New"), KEY_READ | KEY_WOW64_32KEY));
  EXPECT_EQ(OpenResult(HKEY_LOCAL_MACHINE, TEXT("SOFTWARE\\Wow6432Node\\New")), ERROR_SUCCESS);
}

TEST_F(RegistryNativeTest, EveryCallPassesOneGateAndReportsItsFault) {
  HKEY key = Create(HKEY_CURRENT_USER, TEXT("k")), made = nullptr;
  WCHAR name[8];
  DWORD length = 8;
  const std::pair<const char*, std::function<LONG()>> calls[] = {
      {"RegOpenCurrentUser", [&] { return RegOpenCurrentUser(all, &made); }},
      {"RegOpenKeyExW", [&] { return OpenResult(key, TEXT("")); }},
      {"RegCreateKeyExW", [&] { return CreateResult(key, TEXT("x"), all, &made); }},
      {"RegDeleteKeyW", [&] { return RegDeleteKeyW(key, TEXT("x")); }},
      {"RegQueryValueExW",
       [&] { return RegQueryValueExW(key, nullptr, nullptr, nullptr, nullptr, nullptr); }},
      {"RegQueryValueW", [&] { return RegQueryValueW(key, nullptr, nullptr, nullptr); }},
      {"RegSetValueExW", [&] { return RegSetValueExW(key, nullptr, 0, REG_SZ, nullptr, 0); }},
      {"RegDeleteValueW", [&] { return RegDeleteValueW(key, nullptr); }},
      {"RegEnumKeyExW",
       [&] { return RegEnumKeyExW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr); }},
      {"RegEnumValueW",
       [&] { return RegEnumValueW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr); }},
      {"RegQueryInfoKeyW",
       [&] {
         return RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                 nullptr, nullptr, nullptr);
       }},
      {"SHGetValueW", [&] { return SHGetValueW(key, nullptr, nullptr, nullptr, nullptr, nullptr); }},
      {"SHSetValueW", [&] { return SHSetValueW(key, TEXT("s"), nullptr, REG_SZ, nullptr, 0); }},
      {"SHDeleteKeyW", [&] { return SHDeleteKeyW(key, TEXT("s")); }},
      {"AssocQueryStringW",
       [&] {
         return AssocQueryStringW(ASSOCF_INIT_IGNOREUNKNOWN | ASSOCF_NOTRUNCATE, ASSOCSTR_PROGID, TEXT(".x"),
                                  nullptr, nullptr, &length) &
                0xFFFF;
       }},
  };
  const std::string before = platform::SaveRegistry();
  for (const auto& [call, run] : calls) {
    platform::ArmFaultPlan(
        {.action = platform::FaultPlan::Action::Fail, .call = 1, .error = 1234, .ending = {}});
    EXPECT_EQ(run(), 1234) << call;
    EXPECT_EQ(platform::DisarmFaultPlan(), std::vector<std::string>{call});
  }
  EXPECT_EQ(platform::SaveRegistry(), before);
  RegCloseKey(key);
}

}  // namespace
