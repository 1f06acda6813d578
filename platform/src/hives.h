// The registry's trees and the views through which calls see them. The mutex of TheHives() guards all of it
// and is held by the caller of everything below: a public call takes it once, after its gate.
#pragma once

#include <mutex>
#include <set>
#include <span>
#include <vector>

#include "layer.h"

namespace platform {

struct Value {
  std::u16string name;
  std::u16string folded;
  DWORD type = 0;
  std::vector<BYTE> data;
};

// A key. Subkeys and values are vectors sorted by upcased name, the order in which Windows enumerates keys: a
// look-up is a binary search, an enumeration index is a subscript, and an insertion moves pointers only.
struct Node {
  std::u16string name;
  std::u16string folded;   // the name in upper case
  Node* parent = nullptr;  // null for the root of a hive and for a deleted key
  std::size_t depth = 0;
  bool deleted = false;
  std::vector<std::shared_ptr<Node>> subkeys;
  std::vector<Value> values;
};

struct Roots {
  std::shared_ptr<Node> user;     // HKEY_CURRENT_USER
  std::shared_ptr<Node> machine;  // HKEY_LOCAL_MACHINE
};
Roots MakeRoots();  // without anything below them

struct Hives : Roots {
  std::mutex mutex;
  std::set<std::u16string> forbidden;  // paths of DenyKey, in upper case
};
Hives& TheHives();
void ReplaceHives(Roots roots);  // handles of old keys find them deleted; no key is forbidden then

inline constexpr std::size_t maxKeyName = 255;      // units
inline constexpr std::size_t maxValueName = 16383;  // units
std::u16string Fold(std::u16string_view name);
std::shared_ptr<Node> FindSubkey(const Node& key, std::u16string_view name);
std::shared_ptr<Node> AddSubkey(Node& key, std::u16string_view name);  // there is none of that name
void RemoveKey(Node& key);                                             // with everything below it
const Value* FindValue(const Node& key, std::u16string_view name);
void SetValue(Node& key, std::u16string_view name, DWORD type, std::span<const BYTE> data);
bool RemoveValue(Node& key, std::u16string_view name);
bool Forbidden(const Node& key);

// What a handle sees: one key, or below HKEY_CLASSES_ROOT the user's key laid over the machine's.
struct View {
  std::vector<std::shared_ptr<Node>> layers;  // an upper one first; empty only for HKEY_CLASSES_ROOT itself
  bool classes = false;                       // can be read only
};

struct KeyHandle final : Object {
  KeyHandle(View seen, DWORD rights) : Object("key"), view(std::move(seen)), access(rights) {}
  const View view;
  const DWORD access;
};

// The error of a planned fault, for calls that return their error as a status.
inline LSTATUS PlannedStatus() {
  return static_cast<LSTATUS>(PlannedError());
}

// A null text is an empty one throughout.
std::u16string_view Text(LPCWSTR text);

// The view of a handle that has `rights`, or of a predefined key, which has them all.
LSTATUS ViewOf(HKEY handle, DWORD rights, View& view);
// The one key of a handle that is to be changed.
LSTATUS NodeOf(const char* function, HKEY handle, DWORD rights, std::shared_ptr<Node>& key);
// Opening and creating check no rights of the handle that the path starts from, as on Windows. Of `access`
// only the choice of the 32-bit view matters here.
LSTATUS OpenPath(const View& from, std::u16string_view path, DWORD access, View& found);
LSTATUS CreatePath(std::shared_ptr<Node> from, std::u16string_view path, DWORD access,
                   std::shared_ptr<Node>& made);
const Value* FindValue(const View& view, std::u16string_view name);
// A value's type and data as RegQueryValueExW hands them out: the size alone without a buffer, and a NUL
// after a text that was stored without one, where there is room.
LSTATUS CopyValue(const Value& value, DWORD* type, void* data, DWORD* size);

}  // namespace platform
