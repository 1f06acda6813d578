// The registry's trees: keys, values, paths and views. Names compare by their upcased form, which every key
// and value carries along so that a look-up folds the wanted name once.
#include "hives.h"

#include <winreg.h>

#include <platform/control.h>
#include <algorithm>
#include <cstring>

namespace platform {
namespace {

constexpr std::size_t deepestKey = 512;  // levels below a root

auto Position(const std::vector<std::shared_ptr<Node>>& keys, const std::u16string& folded) {
  return std::ranges::lower_bound(
      keys, folded, {}, [](const auto& key) -> auto& { return key->folded; });
}

auto Position(const std::vector<Value>& values, const std::u16string& folded) {
  return std::ranges::lower_bound(values, folded, {}, &Value::folded);
}

std::shared_ptr<Node> MakeRoot(std::u16string_view name) {
  auto root = std::make_shared<Node>();
  root->name = name;
  root->folded = Fold(name);
  return root;
}

// Marks a key and all below it as deleted and takes the tree apart, so that a handle keeps one key alive
// only.
void Discard(Node& key) {
  for (const auto& subkey : key.subkeys) Discard(*subkey);
  key.subkeys.clear();
  key.values.clear();
  key.parent = nullptr;
  key.deleted = true;
}

std::u16string FoldedPath(const Node& key) {
  return key.parent ? FoldedPath(*key.parent) + u'\\' + key.folded : key.folded;
}

// Takes the next component off a path; consecutive backslashes count as one and a last one as none.
bool NextName(std::u16string_view& path, std::u16string_view& name) {
  path.remove_prefix(std::min(path.find_first_not_of(u'\\'), path.size()));
  name = path.substr(0, path.find(u'\\'));
  path.remove_prefix(name.size());
  return !name.empty();
}

// The key that a name below `key` is looked up in: the 32-bit view puts Wow6432Node in the place of the
// machine's SOFTWARE. An empty name asks for the key itself.
std::shared_ptr<Node> InView(const std::shared_ptr<Node>& key, std::u16string_view name, DWORD access) {
  if (!(access & KEY_WOW64_32KEY) || key->parent != TheHives().machine.get() || key->folded != u"SOFTWARE" ||
      EqualNames(name, u"Wow6432Node")) {
    return key;
  }
  if (EqualNames(name, u"Classes")) Unsupported("registry", "classes in the 32-bit view");
  auto redirected = FindSubkey(*key, u"Wow6432Node");
  return redirected ? redirected : key;
}

LSTATUS Walk(const std::shared_ptr<Node>& from, std::u16string_view path, DWORD access,
             std::shared_ptr<Node>& found) {
  found = from;
  for (std::u16string_view name; NextName(path, name);) {
    if (name.size() > maxKeyName) return ERROR_INVALID_PARAMETER;
    found = FindSubkey(*InView(found, name, access), name);
    if (!found) return ERROR_FILE_NOT_FOUND;
  }
  found = InView(found, {}, access);
  return Forbidden(*found) ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
}

View ClassesRoot() {
  View view{{}, true};
  for (const auto& root : {TheHives().user, TheHives().machine}) {
    std::shared_ptr<Node> key;
    if (Walk(root, u"Software\\Classes", 0, key) == ERROR_SUCCESS) view.layers.push_back(std::move(key));
  }
  return view;
}

// What the hives of a new user and a new machine hold.
Roots FurnishedRoots() {
  Roots roots = MakeRoots();
  AddSubkey(*AddSubkey(*roots.user, u"Software"), u"Classes");
  const auto software = AddSubkey(*roots.machine, u"SOFTWARE");
  AddSubkey(*software, u"Classes");
  AddSubkey(*software, u"Wow6432Node");
  return roots;
}

}  // namespace

// Never destroyed: calls arrive until the very end of the process.
Hives& TheHives() {
  static auto* hives = [] {
    auto* made = new Hives;
    static_cast<Roots&>(*made) = FurnishedRoots();
    return made;
  }();
  return *hives;
}

Roots MakeRoots() {
  return {MakeRoot(u"HKEY_CURRENT_USER"), MakeRoot(u"HKEY_LOCAL_MACHINE")};
}

void ReplaceHives(Roots roots) {
  Discard(*TheHives().user);
  Discard(*TheHives().machine);
  static_cast<Roots&>(TheHives()) = std::move(roots);
  TheHives().forbidden.clear();
}

void ResetRegistry() {
  std::lock_guard lock(TheHives().mutex);
  ReplaceHives(FurnishedRoots());
}

std::u16string Fold(std::u16string_view name) {
  std::u16string folded(name);
  std::ranges::transform(folded, folded.begin(), Upcase);
  return folded;
}

std::shared_ptr<Node> FindSubkey(const Node& key, std::u16string_view name) {
  const std::u16string folded = Fold(name);
  const auto found = Position(key.subkeys, folded);
  return found != key.subkeys.end() && (*found)->folded == folded ? *found : nullptr;
}

std::shared_ptr<Node> AddSubkey(Node& key, std::u16string_view name) {
  auto added = std::make_shared<Node>();
  added->name = name;
  added->folded = Fold(name);
  added->parent = &key;
  added->depth = key.depth + 1;
  key.subkeys.insert(Position(key.subkeys, added->folded), added);
  return added;
}

void RemoveKey(Node& key) {
  auto& siblings = key.parent->subkeys;
  const auto self = Position(siblings, key.folded);
  Discard(key);
  siblings.erase(self);
}

const Value* FindValue(const Node& key, std::u16string_view name) {
  const std::u16string folded = Fold(name);
  const auto found = Position(key.values, folded);
  return found != key.values.end() && found->folded == folded ? &*found : nullptr;
}

void SetValue(Node& key, std::u16string_view name, DWORD type, std::span<const BYTE> data) {
  std::u16string folded = Fold(name);
  auto place = key.values.begin() + (Position(key.values, folded) - key.values.cbegin());
  if (place == key.values.end() || place->folded != folded) {
    place = key.values.insert(place, Value{std::u16string(name), std::move(folded), type, {}});
  }
  place->type = type;
  place->data.assign(data.begin(), data.end());
}

bool RemoveValue(Node& key, std::u16string_view name) {
  const Value* found = FindValue(key, name);
  if (found) key.values.erase(key.values.begin() + (found - key.values.data()));
  return found != nullptr;
}

bool Forbidden(const Node& key) {
  const auto& forbidden = TheHives().forbidden;
  return !forbidden.empty() && forbidden.contains(FoldedPath(key));
}

std::u16string_view Text(LPCWSTR text) {
  return text ? std::u16string_view(text) : std::u16string_view();
}

LSTATUS ViewOf(HKEY handle, DWORD rights, View& view) {
  if (handle == HKEY_CLASSES_ROOT) {
    view = ClassesRoot();
  } else if (handle == HKEY_CURRENT_USER) {
    view = {{TheHives().user}, false};
  } else if (handle == HKEY_LOCAL_MACHINE) {
    view = {{TheHives().machine}, false};
  } else {
    const auto open = std::dynamic_pointer_cast<KeyHandle>(FindObject(handle));
    if (!open) return ERROR_INVALID_HANDLE;
    if ((open->access & rights) != rights) return ERROR_ACCESS_DENIED;
    view = open->view;
    std::erase_if(view.layers, [](const auto& key) { return key->deleted; });
    if (view.layers.empty()) return ERROR_KEY_DELETED;
  }
  return ERROR_SUCCESS;
}

LSTATUS NodeOf(const char* function, HKEY handle, DWORD rights, std::shared_ptr<Node>& key) {
  View view;
  if (const LSTATUS error = ViewOf(handle, rights, view)) return error;
  if (view.classes) Unsupported(function, "changing keys of HKEY_CLASSES_ROOT");
  key = view.layers.front();
  return ERROR_SUCCESS;
}

LSTATUS OpenPath(const View& from, std::u16string_view path, DWORD access, View& found) {
  if (path.starts_with(u'\\')) return ERROR_BAD_PATHNAME;
  found = {{}, from.classes};
  for (const auto& layer : from.layers) {
    std::shared_ptr<Node> key;
    const LSTATUS error = Walk(layer, path, access, key);
    if (!error) found.layers.push_back(std::move(key));
    if (error && error != ERROR_FILE_NOT_FOUND) return error;
  }
  return found.layers.empty() ? ERROR_FILE_NOT_FOUND : ERROR_SUCCESS;
}

// Keys that were made before a component fails stay, as on Windows.
LSTATUS CreatePath(std::shared_ptr<Node> from, std::u16string_view path, DWORD access,
                   std::shared_ptr<Node>& made) {
  if (path.starts_with(u'\\')) return ERROR_BAD_PATHNAME;
  made = std::move(from);
  for (std::u16string_view name; NextName(path, name);) {
    made = InView(made, name, access);
    auto next = FindSubkey(*made, name);
    if (!next) {
      if (name.size() > maxKeyName || made->depth == deepestKey) return ERROR_INVALID_PARAMETER;
      next = AddSubkey(*made, name);
      if (Forbidden(*next)) {
        RemoveKey(*next);
        return ERROR_ACCESS_DENIED;
      }
    }
    made = std::move(next);
  }
  made = InView(made, {}, access);
  return Forbidden(*made) ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
}

const Value* FindValue(const View& view, std::u16string_view name) {
  for (const auto& key : view.layers) {
    if (const Value* value = FindValue(*key, name)) return value;
  }
  return nullptr;
}

LSTATUS CopyValue(const Value& value, DWORD* type, void* data, DWORD* size) {
  if (data && !size) return ERROR_INVALID_PARAMETER;
  if (type) *type = value.type;
  if (!size) return ERROR_SUCCESS;
  const std::size_t room = *size, length = value.data.size();
  *size = static_cast<DWORD>(length);
  if (!data || length == 0) return ERROR_SUCCESS;
  if (room < length) return ERROR_MORE_DATA;
  std::memcpy(data, value.data.data(), length);
  const bool isText = value.type == REG_SZ || value.type == REG_EXPAND_SZ || value.type == REG_MULTI_SZ;
  if (isText && length >= 2 && room >= length + 2 && (value.data[length - 2] || value.data[length - 1])) {
    std::memset(static_cast<BYTE*>(data) + length, 0, 2);
  }
  return ERROR_SUCCESS;
}

}  // namespace platform
