// The registry calls and the shell's registry helpers, on a key of the tests' own in the current user's hive.
// Only what every implementation agrees on: the order of names with "_" and the expansion of text are not
// here.
#include <windows.h>

#include <shlwapi.h>

#include <memory>
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

  static OpenedKey Create(HKEY from, const WideString& path) {
    HKEY key = nullptr;
    EXPECT_EQ(CreateResult(from, path, KEY_ALL_ACCESS, &key), 0);
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

}  // namespace
