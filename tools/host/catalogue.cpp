// Reading and editing the catalogue. JSON is read strictly: an unknown field is more likely a misspelt one
// than one to ignore.
#include "host/catalogue.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "host/png_decoder.h"
#include "host/text.h"

namespace host {
namespace {

using nlohmann::json;

constexpr int largestIcon = 256;
constexpr std::size_t longestName = 100;   // bytes; keeps every guest path below 260 characters
constexpr std::size_t textRoom = 32748;    // data bytes of a list or details reply
constexpr std::size_t iconsRoom = 277764;  // data bytes of an icons reply
constexpr std::size_t itemOverhead = 12;   // per item of a reply, beside its value

[[noreturn]] void Refuse(const std::string& where, const std::string& why) {
  throw std::runtime_error(where + ": " + why);
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) Refuse(PathText(path), "cannot be opened");
  return {std::istreambuf_iterator<char>(in), {}};
}

// Rows bottom-up; blue, green, red, alpha.
Bytes ToBmp(const unsigned char* rgba, std::uint32_t width, std::uint32_t height) {
  Bytes bmp = BlankBitmap(width, height);
  std::byte* to = bmp.data() + bmp.size() - std::size_t{width} * height * 4;
  for (std::uint32_t row = height; row-- > 0;) {
    const unsigned char* pixel = rgba + std::size_t{row} * width * 4;
    for (std::uint32_t x = 0; x < width; ++x, pixel += 4) {
      for (const int channel : {2, 1, 0, 3}) *to++ = std::byte{pixel[channel]};
    }
  }
  return bmp;
}

void CheckText(const std::string& where, const char* field, const std::string& text) {
  if (text.empty()) Refuse(where, std::string(field) + " is empty");
  if (std::any_of(text.begin(), text.end(), [](char c) { return c >= 0 && c < 32; })) {
    Refuse(where, std::string(field) + " holds a control character");
  }
}

void CheckNames(const std::string& where, const char* field, const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    CheckText(where, field, name);
    if (name.find('\\') != std::string::npos)
      Refuse(where, std::string(field) + " holds a backslash: " + name);
  }
}

std::size_t TextItem(const std::string& text) {
  return itemOverhead + text.size() + 1;
}

void CheckApplication(const Application& app) {
  CheckText("an application", "name", app.name);
  CheckText(app.name, "bundleId", app.bundleId);
  if (app.name.find_first_of("<>:\"/\\|?*") != std::string::npos) Refuse(app.name, "name cannot name a file");
  if (app.name.size() > longestName) Refuse(app.name, "name is longer than 100 bytes");
  std::size_t details = itemOverhead + 4;
  for (const auto& [field, names] :
       {std::pair{"documentTypes", &app.documentTypes}, std::pair{"defaultTypes", &app.defaultTypes},
        std::pair{"urlSchemes", &app.urlSchemes}}) {
    CheckNames(app.name, field, *names);
    for (const std::string& name : *names) details += TextItem(name);
  }
  if (details > textRoom) Refuse(app.name, "types and schemes do not fit in one reply");
  std::size_t icons = 0;
  for (const Icon& icon : app.icons) icons += itemOverhead + icon.bmp.size();
  if (icons > iconsRoom) {
    Refuse(app.name, "icons take " + WithThousands(icons) + " bytes as bitmaps, one reply holds " +
                         WithThousands(iconsRoom));
  }
}

std::string TextOf(const json& value, const std::string& where) {
  if (!value.is_string()) Refuse(where, "must be a text");
  return value.get<std::string>();
}

std::vector<std::string> TextsOf(const json& value, const std::string& where) {
  if (!value.is_array()) Refuse(where, "must be a list of texts");
  std::vector<std::string> texts;
  for (const json& item : value) texts.push_back(TextOf(item, where));
  return texts;
}

// "file.png", or {"file": "file.png", "format": "bmp24"} for one that the guest is to refuse.
Icon IconOf(const json& value, const std::filesystem::path& folder, const std::string& where) {
  if (value.is_string()) return ReadIcon(folder, value.get<std::string>());
  if (!value.is_object()) Refuse(where, "must be a file name or an object");
  std::string file, format = "bmp32";
  for (const auto& [key, field] : value.items()) {
    if (key == "file") {
      file = TextOf(field, where + ".file");
    } else if (key == "format") {
      format = TextOf(field, where + ".format");
    } else {
      Refuse(where, "unknown field \"" + key + "\"");
    }
  }
  if (format != "bmp32" && format != "bmp24") Refuse(where, "unknown format \"" + format + "\"");
  const Icon icon = ReadIcon(folder, file);
  return format == "bmp24" ? RefusedIcon(icon) : icon;
}

Application ApplicationOf(const json& value, const std::filesystem::path& folder, const std::string& where) {
  if (!value.is_object()) Refuse(where, "must be an object");
  Application app;
  for (const auto& [key, field] : value.items()) {
    const std::string at = where + "." + key;
    if (key == "bundleId") {
      app.bundleId = TextOf(field, at);
    } else if (key == "name") {
      app.name = TextOf(field, at);
    } else if (key == "documentTypes") {
      app.documentTypes = TextsOf(field, at);
    } else if (key == "defaultTypes") {
      app.defaultTypes = TextsOf(field, at);
    } else if (key == "urlSchemes") {
      app.urlSchemes = TextsOf(field, at);
    } else if (key == "anyType") {
      if (!field.is_boolean()) Refuse(at, "must be true or false");
      app.anyType = field.get<bool>();
    } else if (key == "icons") {
      if (!field.is_array()) Refuse(at, "must be a list");
      for (const json& icon : field) app.icons.push_back(IconOf(icon, folder, at));
    } else {
      Refuse(where, "unknown field \"" + key + "\"");
    }
  }
  return app;
}

}  // namespace

Icon ReadIcon(const std::filesystem::path& folder, const std::string& file) {
  const std::filesystem::path path = folder / PathOf(file);
  const std::string png = ReadFile(path);
  int width = 0, height = 0, channels = 0;
  const std::unique_ptr<unsigned char, decltype(&stbi_image_free)> pixels(
      stbi_load_from_memory(reinterpret_cast<const unsigned char*>(png.data()), static_cast<int>(png.size()),
                            &width, &height, &channels, 4),
      stbi_image_free);
  if (!pixels) Refuse(PathText(path), "is no PNG image");
  if (width > largestIcon || height > largestIcon) Refuse(PathText(path), "is larger than 256 by 256 pixels");
  return {file, width, true,
          ToBmp(pixels.get(), static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height))};
}

Icon PlainIcon() {
  constexpr int size = 32;
  Icon icon{"plain.png", size, true, BlankBitmap(size, size)};
  std::fill(icon.bmp.begin() + 54, icon.bmp.end(), std::byte{0xC0});
  return icon;
}

Icon RefusedIcon(const Icon& icon) {
  if (!icon.accepted) return icon;
  const std::uint32_t width = GetU32(icon.bmp, 18), height = GetU32(icon.bmp, 22);
  Icon refused{icon.file, icon.size, false, BlankBitmap(width, height, 24)};
  const std::size_t pitch = (refused.bmp.size() - 54) / height;
  for (std::size_t row = 0; row < height; ++row) {
    for (std::size_t x = 0; x < width; ++x) {
      std::copy_n(&icon.bmp[54 + (row * width + x) * 4], 3, &refused.bmp[54 + row * pitch + x * 3]);
    }
  }
  return refused;
}

Catalogue Catalogue::Load(const std::filesystem::path& folder) {
  const std::filesystem::path path = folder / "catalogue.json";
  const std::string file = PathText(path);
  json root;
  try {
    root = json::parse(ReadFile(path));
  } catch (const json::parse_error& failure) {
    const std::string text = failure.what();  // begins with the library's own tag in brackets
    Refuse(file, text.substr(text.find("] ") + 2));
  }
  if (!root.is_object() || root.size() != 1 || !root.contains("applications") ||
      !root["applications"].is_array()) {
    Refuse(file, "must be an object with one field, the list \"applications\"");
  }
  Catalogue catalogue;
  for (const json& value : root["applications"]) {
    const std::string index = std::to_string(catalogue.applications_.size());
    Application app = ApplicationOf(value, folder, file + ": applications[" + index + "]");
    try {
      catalogue.Add(std::move(app));
    } catch (const std::runtime_error& failure) {
      Refuse(file, failure.what());
    }
  }
  return catalogue;
}

const Application* Catalogue::Find(std::string_view name) const {
  const auto found = std::find_if(applications_.begin(), applications_.end(),
                                  [&](const Application& app) { return EqualNoCase(app.name, name); });
  return found == applications_.end() ? nullptr : &*found;
}

void Catalogue::Add(Application application) {
  CheckApplication(application);
  std::size_t list = TextItem(application.bundleId) + TextItem(application.name);
  for (const Application& other : applications_) {
    list += TextItem(other.bundleId) + TextItem(other.name);
    // Names that differ in case alone are one file in the guest.
    if (EqualNoCase(other.name, application.name)) Refuse(application.name, "there are two of this name");
    if (other.bundleId == application.bundleId) {
      Refuse(application.name, "has the bundleId of " + other.name + ": " + other.bundleId);
    }
  }
  if (list > textRoom) Refuse(application.name, "the list of applications does not fit in one reply");
  applications_.push_back(std::move(application));
}

void Catalogue::Remove(std::string_view name) {
  const Application* found = Find(name);
  if (!found) Refuse(std::string(name), "no such application");
  applications_.erase(applications_.begin() + (found - applications_.data()));
}

void Catalogue::Rename(std::string_view name, const std::string& newName) {
  const Application* found = Find(name);
  if (!found) Refuse(std::string(name), "no such application");
  Catalogue renamed;
  for (Application app : applications_) {
    if (app.name == found->name) app.name = newName;
    renamed.Add(std::move(app));
  }
  applications_ = std::move(renamed.applications_);
}

}  // namespace host
