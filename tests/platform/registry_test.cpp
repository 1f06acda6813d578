// The registry calls and the shell's registry helpers, on a key of the tests' own in the current user's hive.
// Only what every implementation agrees on: the order of names with "_" and the expansion of text are not
// here.
#include <windows.h>

#include <shlwapi.h>

#include <cstring>
#include <functional>
#include <memory>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/guest.h"

namespace {

constexpr const WCHAR* testKey = TEXT("Software\\VelomiraTest");

struct Close {
  void operator()(HKEY key) const { RegCloseKey(key); }
};
using OpenedKey = std::unique_ptr<std::remove_pointer_t<HKEY>, Close>;

class RegistryTest : public GuestTest {
 protected:
  void SetUp() override {
    GuestTest::SetUp();
    SHDeleteKeyW(HKEY_CURRENT_USER, testKey);
    root_ = Create(HKEY_CURRENT_USER, testKey);
  }
  void TearDown() override {
    root_.reset();
    SHDeleteKeyW(HKEY_CURRENT_USER, testKey);
    GuestTest::TearDown();
  }

  static OpenedKey Create(HKEY from, const WideString& path, REGSAM access = KEY_ALL_ACCESS) {
    HKEY key = nullptr;
    EXPECT_EQ(CreateResult(from, path, access, &key), 0);
    return OpenedKey(key);
  }
  static LONG CreateResult(HKEY from, const WideString& path, REGSAM access, HKEY* key) {
    return RegCreateKeyExW(from, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr, key,
                           nullptr);
  }
  static LONG OpenResult(HKEY from, const WCHAR* path) {
    HKEY key = nullptr;
    const LONG error = RegOpenKeyExW(from, path, 0, KEY_READ, &key);
    EXPECT_EQ(error == 0, key != nullptr);
    if (key) RegCloseKey(key);
    return error;
  }
  static LONG SetText(HKEY key, const WCHAR* name, const WideString& text) {
    return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                          static_cast<DWORD>((text.size() + 1) * sizeof(WCHAR)));
  }
  // Like SHGetValueW, whose result has another type on some builds.
  static LONG Get(HKEY from, const WCHAR* path, const WCHAR* name, DWORD* type, void* data, DWORD* size) {
    return static_cast<LONG>(SHGetValueW(from, path, name, type, data, size));
  }
  static std::vector<WideString> Subkeys(HKEY key) {
    std::vector<WideString> names;
    WCHAR name[256];
    for (DWORD length = 256; !RegEnumKeyExW(key, static_cast<DWORD>(names.size()), name, &length, nullptr,
                                            nullptr, nullptr, nullptr);
         length = 256) {
      EXPECT_EQ(name[length], 0);
      names.emplace_back(name, length);
    }
    return names;
  }
  HKEY root() const { return root_.get(); }

 private:
  OpenedKey root_;
};

TEST_F(RegistryTest, PathsAreTakenApartAtBackslashesWithoutRegardToCase) {
  Create(root(), TEXT("One\\Two"));
  const struct {
    const WCHAR* path;
    LONG error;
  } cases[] = {
      {nullptr, ERROR_SUCCESS},
      {TEXT(""), ERROR_SUCCESS},
      {TEXT("one\\TWO"), ERROR_SUCCESS},
      {TEXT("One\\"), ERROR_SUCCESS},
      {TEXT("One\\\\Two\\\\"), ERROR_SUCCESS},
      {TEXT("\\One"), ERROR_BAD_PATHNAME},
      {TEXT("\\"), ERROR_BAD_PATHNAME},
      {TEXT("Two"), ERROR_FILE_NOT_FOUND},
      {TEXT("One\\Two\\Three"), ERROR_FILE_NOT_FOUND},
      {TEXT("One/Two"), ERROR_FILE_NOT_FOUND},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path ? WideToUtf8(c.path) : "null");
    EXPECT_EQ(OpenResult(root(), c.path), c.error);
  }
}

TEST_F(RegistryTest, CreatingMakesParentsAndSaysWhatWasThere) {
  const struct {
    const WCHAR* path;
    DWORD disposition;
  } cases[] = {
      {TEXT(".txt\\OpenWithProgids\\"), REG_CREATED_NEW_KEY},
      {TEXT(".TXT\\openwithprogids"), REG_OPENED_EXISTING_KEY},
      {TEXT(".txt"), REG_OPENED_EXISTING_KEY},
  };
  for (const auto& c : cases) {
    HKEY key = nullptr;
    DWORD disposition = 0;
    ASSERT_EQ(RegCreateKeyExW(root(), c.path, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE, nullptr, &key,
                              &disposition),
              0);
    RegCloseKey(key);
    EXPECT_EQ(disposition, c.disposition) << WideToUtf8(c.path);
  }
  EXPECT_EQ(Subkeys(root()), std::vector<WideString>{TEXT(".txt")});
  HKEY key = nullptr;
  EXPECT_EQ(CreateResult(root(), TEXT("\\x"), KEY_WRITE, &key), ERROR_BAD_PATHNAME);
}

TEST_F(RegistryTest, NamesHaveTheirLongestLengths) {
  Create(root(), WideString(255, 'k'));
  HKEY key = nullptr;
  EXPECT_EQ(CreateResult(root(), TEXT("parent\\") + WideString(257, 'k'), KEY_WRITE, &key),
            ERROR_INVALID_PARAMETER);
  EXPECT_EQ(OpenResult(root(), WideString(257, 'k').c_str()), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(SetText(root(), WideString(16383, 'v').c_str(), TEXT("")), ERROR_SUCCESS);
  EXPECT_EQ(SetText(root(), WideString(16384, 'v').c_str(), TEXT("")), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(Subkeys(root()), (std::vector<WideString>{WideString(255, 'k'), TEXT("parent")}));
}

TEST_F(RegistryTest, HandlesNeedRightsForValuesAndEnumeration) {
  Create(root(), TEXT("sub"));
  SetText(root(), TEXT("v"), TEXT("text"));
  WCHAR name[16];
  const struct {
    const char* call;
    std::function<LONG(HKEY)> run;
    LONG readOnly, writeOnly;
  } cases[] = {
      {"query", [](HKEY key) { return RegQueryValueExW(key, TEXT("v"), nullptr, nullptr, nullptr, nullptr); },
       ERROR_SUCCESS, ERROR_ACCESS_DENIED},
      {"SH get", [](HKEY key) { return Get(key, nullptr, TEXT("v"), nullptr, nullptr, nullptr); },
       ERROR_SUCCESS, ERROR_ACCESS_DENIED},
      {"enumerate values",
       [&](HKEY key) {
         DWORD length = 16;
         return RegEnumValueW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr);
       },
       ERROR_SUCCESS, ERROR_ACCESS_DENIED},
      {"enumerate keys",
       [&](HKEY key) {
         DWORD length = 16;
         return RegEnumKeyExW(key, 0, name, &length, nullptr, nullptr, nullptr, nullptr);
       },
       ERROR_SUCCESS, ERROR_ACCESS_DENIED},
      {"set", [](HKEY key) { return SetText(key, TEXT("v"), TEXT("new")); }, ERROR_ACCESS_DENIED,
       ERROR_SUCCESS},
      {"SH set",
       [](HKEY key) { return static_cast<LONG>(SHSetValueW(key, nullptr, TEXT("v"), REG_SZ, nullptr, 0)); },
       ERROR_ACCESS_DENIED, ERROR_SUCCESS},
      {"remove", [](HKEY key) { return RegDeleteValueW(key, TEXT("gone")); }, ERROR_ACCESS_DENIED,
       ERROR_FILE_NOT_FOUND},
      {"open below", [](HKEY key) { return OpenResult(key, TEXT("sub")); }, ERROR_SUCCESS, ERROR_SUCCESS},
      {"create below",
       [](HKEY key) {
         HKEY made = nullptr;
         const LONG error = CreateResult(key, TEXT("sub\\made"), KEY_READ, &made);
         RegCloseKey(made);
         return error;
       },
       ERROR_SUCCESS, ERROR_SUCCESS},
      {"remove below", [](HKEY key) { return RegDeleteKeyW(key, TEXT("sub\\made")); }, ERROR_SUCCESS,
       ERROR_SUCCESS},
  };
  const OpenedKey reader = Create(root(), TEXT(""), KEY_READ), writer = Create(root(), TEXT(""), KEY_WRITE);
  for (const auto& c : cases) EXPECT_EQ(c.run(reader.get()), c.readOnly) << c.call;
  for (const auto& c : cases) EXPECT_EQ(c.run(writer.get()), c.writeOnly) << c.call;
}

TEST_F(RegistryTest, DeletingTakesALeafAndLeavesItsHandlesDead) {
  const OpenedKey leaf = Create(root(), TEXT("branch\\leaf"));
  EXPECT_EQ(RegDeleteKeyW(root(), TEXT("branch")), ERROR_ACCESS_DENIED);
  EXPECT_EQ(RegDeleteKeyW(root(), TEXT("missing")), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(RegDeleteKeyW(root(), nullptr), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(RegDeleteKeyW(root(), TEXT("Branch\\Leaf\\")), ERROR_SUCCESS);
  EXPECT_EQ(OpenResult(root(), TEXT("branch\\leaf")), ERROR_FILE_NOT_FOUND);

  WCHAR name[8];
  DWORD length = 8;
  HKEY made = nullptr;
  EXPECT_EQ(SetText(leaf.get(), TEXT(""), TEXT("x")), ERROR_KEY_DELETED);
  EXPECT_EQ(RegQueryValueExW(leaf.get(), TEXT(""), nullptr, nullptr, nullptr, nullptr), ERROR_KEY_DELETED);
  EXPECT_EQ(RegEnumKeyExW(leaf.get(), 0, name, &length, nullptr, nullptr, nullptr, nullptr),
            ERROR_KEY_DELETED);
  EXPECT_EQ(CreateResult(leaf.get(), TEXT("twig"), KEY_READ, &made), ERROR_KEY_DELETED);
  EXPECT_EQ(OpenResult(leaf.get(), TEXT("")), ERROR_KEY_DELETED);
  EXPECT_EQ(RegDeleteKeyW(leaf.get(), TEXT("")), ERROR_KEY_DELETED);

  const OpenedKey again = Create(root(), TEXT("branch\\leaf"));
  EXPECT_EQ(RegQueryValueExW(leaf.get(), TEXT(""), nullptr, nullptr, nullptr, nullptr), ERROR_KEY_DELETED);
  EXPECT_EQ(RegDeleteKeyW(again.get(), TEXT("")), ERROR_SUCCESS);
  EXPECT_EQ(RegDeleteKeyW(root(), TEXT("branch")), ERROR_SUCCESS);
}

TEST_F(RegistryTest, SubkeysEnumerateByNameWithTheirOwnSpelling) {
  for (const WCHAR* name : {TEXT("b"), TEXT("ab"), TEXT("Ac"), TEXT("A"), TEXT("c"), TEXT("\u00e9")}) {
    Create(root(), name);
  }
  Create(root(), TEXT("C"));
  EXPECT_EQ(Subkeys(root()), (std::vector<WideString>{TEXT("A"), TEXT("ab"), TEXT("Ac"), TEXT("b"), TEXT("c"),
                                                      TEXT("\u00e9")}));
  EXPECT_EQ(OpenResult(root(), TEXT("\u00c9")), ERROR_SUCCESS);
  RegDeleteKeyW(root(), TEXT("ab"));
  WCHAR name[8];
  const struct {
    DWORD index, room;
    LONG error;
    DWORD length;
  } cases[] = {
      {1, 3, ERROR_SUCCESS, 2}, {1, 2, ERROR_MORE_DATA, 2},     {1, 0, ERROR_MORE_DATA, 0},
      {0, 2, ERROR_SUCCESS, 1}, {5, 8, ERROR_NO_MORE_ITEMS, 8}, {0xFFFFFFFF, 8, ERROR_NO_MORE_ITEMS, 8},
  };
  for (const auto& c : cases) {
    DWORD length = c.room;
    EXPECT_EQ(RegEnumKeyExW(root(), c.index, name, &length, nullptr, nullptr, nullptr, nullptr), c.error);
    EXPECT_EQ(length, c.length) << c.index << " into " << c.room;
  }
}

// Each value is read into four units filled with '#', whole and through the shell's helper.
TEST_F(RegistryTest, ValuesComeBackAsTheyWereStored) {
  const WCHAR noNul[] = {'a', 'b'};
  const WCHAR list[] = {'a', 0, 'b', 0};
  const WCHAR tooLong[] = {'a', 'b', 'c', 'd', 0};
  const struct {
    const char* what;
    DWORD type;
    const void* data;
    DWORD size;
    LONG error;
    WideString units;
  } cases[] = {
      {"text", REG_SZ, TEXT("abc"), 8, ERROR_SUCCESS, {'a', 'b', 'c', 0}},
      {"text without its NUL", REG_SZ, noNul, 4, ERROR_SUCCESS, {'a', 'b', 0, '#'}},
      {"text of no bytes", REG_SZ, nullptr, 0, ERROR_SUCCESS, {'#', '#', '#', '#'}},
      {"list", REG_MULTI_SZ, list, 8, ERROR_SUCCESS, {'a', 0, 'b', 0}},
      {"number", REG_DWORD, noNul, 4, ERROR_SUCCESS, {'a', 'b', '#', '#'}},
      {"nothing", REG_NONE, nullptr, 0, ERROR_SUCCESS, {'#', '#', '#', '#'}},
      {"unknown type", 0x1234, noNul, 2, ERROR_SUCCESS, {'a', '#', '#', '#'}},
      {"longer than the buffer", REG_SZ, tooLong, 10, ERROR_MORE_DATA, {'#', '#', '#', '#'}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ASSERT_EQ(RegSetValueExW(root(), TEXT("Name"), 0, c.type, static_cast<const BYTE*>(c.data), c.size), 0);
    for (const bool shell : {false, true}) {
      SCOPED_TRACE(shell ? "SHGetValueW" : "RegQueryValueExW");
      const auto read = [&](void* data, DWORD* type, DWORD* size) -> LONG {
        return shell ? Get(HKEY_CURRENT_USER, testKey, TEXT("nAME"), type, data, size)
                     : RegQueryValueExW(root(), TEXT("nAME"), nullptr, type, static_cast<BYTE*>(data), size);
      };
      DWORD type = 99, size = 0;
      EXPECT_EQ(read(nullptr, &type, &size), 0);
      EXPECT_EQ(type, c.type);
      EXPECT_EQ(size, c.size);
      WideString units(4, '#');
      type = 99;
      size = 8;
      EXPECT_EQ(read(units.data(), &type, &size), c.error);
      EXPECT_EQ(type, c.type);
      EXPECT_EQ(size, c.size);
      EXPECT_EQ(units, c.units);
    }
  }
  EXPECT_EQ(RegDeleteValueW(root(), TEXT("NAME")), ERROR_SUCCESS);
  EXPECT_EQ(RegQueryValueExW(root(), TEXT("Name"), nullptr, nullptr, nullptr, nullptr), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Get(root(), TEXT("no key"), nullptr, nullptr, nullptr, nullptr), ERROR_FILE_NOT_FOUND);
}

TEST_F(RegistryTest, TheDefaultValueIsTheOneWithoutAName) {
  Create(root(), TEXT("key"));
  WCHAR text[4] = {'#', '#', '#', '#'};
  LONG size = sizeof(text);
  EXPECT_EQ(RegQueryValueW(root(), TEXT("key"), nullptr, nullptr), ERROR_SUCCESS);
  EXPECT_EQ(RegQueryValueW(root(), TEXT("key"), text, &size), ERROR_SUCCESS);
  EXPECT_EQ(size, 2);
  EXPECT_EQ(text[0], 0);
  EXPECT_EQ(RegQueryValueW(root(), TEXT("no key"), nullptr, nullptr), ERROR_FILE_NOT_FOUND);

  EXPECT_EQ(static_cast<LONG>(SHSetValueW(root(), TEXT("key"), nullptr, REG_SZ, TEXT("abcd"), 10)), 0);
  EXPECT_EQ(RegQueryValueW(root(), TEXT("key"), nullptr, &size), ERROR_SUCCESS);
  EXPECT_EQ(size, 10);
  size = sizeof(text);
  EXPECT_EQ(RegQueryValueW(root(), TEXT("key"), text, &size), ERROR_MORE_DATA);
  const OpenedKey key = Create(root(), TEXT("key"), KEY_READ);
  EXPECT_EQ(RegQueryValueExW(key.get(), nullptr, nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
  EXPECT_EQ(RegQueryValueExW(key.get(), TEXT(""), nullptr, nullptr, nullptr, nullptr), ERROR_SUCCESS);
}

TEST_F(RegistryTest, InformationCountsAndMeasures) {
  Create(root(), TEXT("four"));
  Create(root(), TEXT("sixsix"));
  SetText(root(), TEXT(""), TEXT("the longest data"));
  SetText(root(), TEXT("b"), TEXT(""));
  SetText(root(), TEXT("A long name"), TEXT("x"));
  DWORD subkeys = 0, longestSubkey = 0, values = 0, longestName = 0, longestData = 0;
  EXPECT_EQ(RegQueryInfoKeyW(root(), nullptr, nullptr, nullptr, &subkeys, &longestSubkey, nullptr, &values,
                             &longestName, &longestData, nullptr, nullptr),
            ERROR_SUCCESS);
  EXPECT_EQ(subkeys, 2u);
  EXPECT_EQ(longestSubkey, 6u);
  EXPECT_EQ(values, 3u);
  EXPECT_EQ(longestName, 11u);
  EXPECT_EQ(longestData, 34u);

  std::vector<WideString> names;
  WCHAR name[16], data[20];
  DWORD length = 16, type = 0, size = sizeof(data);
  while (!RegEnumValueW(root(), static_cast<DWORD>(names.size()), name, &length, nullptr, &type,
                        reinterpret_cast<BYTE*>(data), &size)) {
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    EXPECT_EQ(data[size / 2 - 1], 0);
    names.emplace_back(name, length);
    length = 16;
    size = sizeof(data);
  }
  EXPECT_EQ(names, (std::vector<WideString>{TEXT(""), TEXT("A long name"), TEXT("b")}));
}

TEST_F(RegistryTest, ShellHelpersMakeAndDeleteWholeTrees) {
  EXPECT_EQ(static_cast<LONG>(SHSetValueW(HKEY_CURRENT_USER, TEXT("Software\\VelomiraTest\\tree\\deep"),
                                          TEXT("v"), REG_SZ, nullptr, 0)),
            0);
  Create(root(), TEXT("tree\\deep\\deeper"));
  Create(root(), TEXT("tree\\other"));
  Create(root(), TEXT("tree2"));
  const OpenedKey inside = Create(root(), TEXT("tree\\deep"));
  EXPECT_EQ(static_cast<LONG>(SHDeleteKeyW(root(), TEXT("TREE"))), ERROR_SUCCESS);
  EXPECT_EQ(static_cast<LONG>(SHDeleteKeyW(root(), TEXT("tree"))), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(SetText(inside.get(), TEXT("v"), TEXT("x")), ERROR_KEY_DELETED);
  EXPECT_EQ(Subkeys(root()), std::vector<WideString>{TEXT("tree2")});
}

TEST_F(RegistryTest, TheCurrentUsersHiveIsTheOneOfThePredefinedKey) {
  HKEY hive = nullptr;
  ASSERT_EQ(RegOpenCurrentUser(KEY_READ | KEY_WRITE, &hive), ERROR_SUCCESS);
  Create(hive, TEXT("Software\\VelomiraTest\\made"), KEY_WRITE);
  EXPECT_EQ(OpenResult(root(), TEXT("made")), ERROR_SUCCESS);
  EXPECT_EQ(RegCloseKey(hive), ERROR_SUCCESS);
  EXPECT_EQ(RegCloseKey(hive), ERROR_INVALID_HANDLE);
  EXPECT_EQ(OpenResult(hive, TEXT("Software")), ERROR_INVALID_HANDLE);
  EXPECT_EQ(RegCloseKey(HKEY_CURRENT_USER), ERROR_SUCCESS);
  EXPECT_EQ(OpenResult(HKEY_CURRENT_USER, testKey), ERROR_SUCCESS);
}

TEST_F(RegistryTest, AnExtensionThatNothingKnowsHasNoAssociation) {
  DWORD length = 0xFFFFFFFF;
  EXPECT_EQ(AssocQueryStringW(ASSOCF_INIT_IGNOREUNKNOWN | ASSOCF_NOTRUNCATE, ASSOCSTR_EXECUTABLE,
                              TEXT(".velomiranone"), nullptr, nullptr, &length),
            static_cast<HRESULT>(0x80070483));
}

TEST_F(RegistryTest, ThreadsShareTheKeys) {
  constexpr int threadCount = 4, keyCount = 100;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < threadCount; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < keyCount; ++i) {
        const WideString own{static_cast<WCHAR>('a' + thread), static_cast<WCHAR>('0' + i / 10),
                             static_cast<WCHAR>('0' + i % 10)};
        SetText(Create(root(), own).get(), TEXT("v"), own);
        Create(root(), own + TEXT("\\gone"));
        EXPECT_EQ(RegDeleteKeyW(root(), (own + TEXT("\\gone")).c_str()), ERROR_SUCCESS);
        SHSetValueW(root(), TEXT("shared"), own.c_str(), REG_NONE, nullptr, 0);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(Subkeys(root()).size(), threadCount * keyCount + 1u);
  DWORD values = 0;
  RegQueryInfoKeyW(Create(root(), TEXT("shared")).get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                   &values, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(values, static_cast<DWORD>(threadCount * keyCount));
}

}  // namespace
