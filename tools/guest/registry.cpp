// Keys and values of the guest.
#include "guest/registry.h"

#include <span>
#include <stdexcept>

#include "guest/bytes.h"

namespace host {
namespace {

HKEY RootOf(const std::string& key) {
  const std::string root = key.substr(0, key.find('\\'));
  if (root == "HKCU") return HKEY_CURRENT_USER;
  if (root == "HKLM") return HKEY_LOCAL_MACHINE;
  if (root == "HKCR") return HKEY_CLASSES_ROOT;
  throw std::runtime_error("registry key without its root: " + key);
}

std::basic_string<WCHAR> BelowRoot(const std::string& key) {
  const std::size_t root = key.find('\\');
  return root == std::string::npos ? std::basic_string<WCHAR>() : Widen(key.substr(root + 1));
}

void Check(LSTATUS status, const std::string& key) {
  if (status != ERROR_SUCCESS) throw std::runtime_error("registry key cannot be written: " + key);
}

Key MakeKey(const std::string& key) {
  HKEY made = nullptr;
  Check(RegCreateKeyExW(RootOf(key), BelowRoot(key).c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_WRITE,
                        nullptr, &made, nullptr),
        key);
  return Key(made);
}

std::string DescribeValue(DWORD type, std::span<const std::byte> data) {
  if (type == REG_SZ) return RegistryText(Utf16Text(data));
  if (type == REG_EXPAND_SZ) return "REG_EXPAND_SZ \"" + Utf16Text(data) + "\"";
  if (type == REG_DWORD && data.size() == 4) return "REG_DWORD " + std::to_string(GetU32(data, 0));
  const std::string size = std::to_string(data.size()) + " bytes";
  return (type == REG_NONE ? "REG_NONE, " : "type " + std::to_string(type) + ", ") + size;
}

// Room for the largest name and the data of a value; made once for a whole tree.
struct ValueRoom {
  std::basic_string<WCHAR> name = std::basic_string<WCHAR>(16384, 0);
  Bytes data = Bytes(65536);
};

void VisitKey(const std::string& path, ValueRoom& room, const RegistryVisitor& visit) {
  const Key key = OpenKey(path);
  if (!key) return;
  visit(path, nullptr, 0, {});
  auto& [name, data] = room;
  for (DWORD i = 0;; ++i) {
    DWORD length = static_cast<DWORD>(name.size()), size = static_cast<DWORD>(data.size()), type = 0;
    if (RegEnumValueW(key.get(), i, name.data(), &length, nullptr, &type,
                      reinterpret_cast<BYTE*>(data.data()), &size) != ERROR_SUCCESS) {
      break;
    }
    const std::string value = Narrow({name.data(), length});
    visit(path, &value, type, std::span(data).first(size));
  }
  for (DWORD i = 0;; ++i) {
    DWORD length = 256;
    if (RegEnumKeyExW(key.get(), i, name.data(), &length, nullptr, nullptr, nullptr, nullptr) !=
        ERROR_SUCCESS) {
      break;
    }
    VisitKey(path + "\\" + Narrow({name.data(), length}), room, visit);
  }
}

}  // namespace

Key OpenKey(const std::string& key) {
  HKEY opened = nullptr;
  if (RegOpenKeyExW(RootOf(key), BelowRoot(key).c_str(), 0, KEY_READ, &opened) != ERROR_SUCCESS) return Key();
  return Key(opened);
}

void PutKey(const std::string& key) {
  MakeKey(key);
}

void PutData(const std::string& key, const std::string& value, DWORD type, std::string_view bytes) {
  const Key made = MakeKey(key);
  Check(RegSetValueExW(made.get(), Widen(value).c_str(), 0, type, reinterpret_cast<const BYTE*>(bytes.data()),
                       static_cast<DWORD>(bytes.size())),
        key);
}

void PutText(const std::string& key, const std::string& value, const std::string& text) {
  PutData(key, value, REG_SZ, Utf16Bytes(text));
}

void VisitKeys(const std::string& key, const RegistryVisitor& visit) {
  ValueRoom room;
  VisitKey(key, room, visit);
}

void ReadKeys(const std::string& key, Entries& entries) {
  VisitKeys(key, [&](const std::string& path, const std::string* value, DWORD type,
                     std::span<const std::byte> data) {
    value ? entries[ValuePath(path, *value)] = DescribeValue(type, data) : entries[path];
  });
}

std::string RegistryText(const std::string& text) {
  return "\"" + text + "\"";
}

}  // namespace host
