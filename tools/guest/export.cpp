// The formats of an export.
#include "guest/export.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "guest/bytes.h"
#include "guest/guest_view.h"

namespace host {
namespace {

std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

// A text stands as such when nothing but its end is a NUL and it is on one line; a number as its digits; all
// else as bytes with the type's number.
std::string RegData(DWORD type, std::span<const std::byte> data) {
  char digits[16];
  if (type == REG_DWORD && data.size() == 4) {
    std::snprintf(digits, sizeof digits, "dword:%08x", static_cast<unsigned>(GetU32(data, 0)));
    return digits;
  }
  if (type == REG_SZ && data.size() % 2 == 0) {
    const std::string text = Utf16Text(data);
    const bool whole = (Widen(text).size() + 1) * 2 == data.size();
    if (whole && text.find_first_of("\r\n") == std::string::npos) return Quoted(text);
  }
  std::snprintf(digits, sizeof digits, "hex(%x):", static_cast<unsigned>(type));
  std::string bytes = type == REG_BINARY ? "hex:" : digits;
  for (std::size_t i = 0; i < data.size(); ++i) {
    std::snprintf(digits, sizeof digits, "%s%02x", i == 0 ? "" : ",", std::to_integer<unsigned>(data[i]));
    bytes += digits;
  }
  return bytes;
}

}  // namespace

std::string RegistryAsReg() {
  std::string text = "Windows Registry Editor Version 5.00\r\n";
  VisitRegistry(
      [&](const std::string& key, const std::string* value, DWORD type, std::span<const std::byte> data) {
        if (!value) {
          text += "\r\n[HKEY_CURRENT_USER" + key.substr(key.find('\\')) + "]\r\n";
        } else {
          text += (value->empty() ? "@" : Quoted(*value)) + "=" + RegData(type, data) + "\r\n";
        }
      });
  text += "\r\n";
  std::string file = "\xFF\xFE";
  for (const WCHAR unit : Widen(text)) {
    file += static_cast<char>(unit & 0xFF);
    file += static_cast<char>(unit >> 8);
  }
  return file;
}

std::string GuestAsJson() {
  using nlohmann::json;
  const Snapshot guest = TakeSnapshot();
  json all = {{"files", guest.files}, {"launchers", json::object()}, {"registry", json::object()}};
  for (const auto& [path, launcher] : guest.launchers) {
    all["launchers"][path] = {{"bundleId", launcher.bundleId},
                              {"name", launcher.name},
                              {"description", launcher.description},
                              {"iconSizes", launcher.iconSizes}};
  }
  for (const auto& [path, data] : guest.registry) {
    const std::size_t mark = path.find(valueMark);
    json& key = all["registry"].emplace(path.substr(0, mark), json::object()).first.value();
    if (mark != std::string::npos) key[path.substr(mark + 1)] = data;
  }
  return all.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

}  // namespace host
