// Reading and editing the catalogue. JSON is read strictly: an unknown field is more likely a misspelt one
// than one to ignore.
#include "host/catalogue.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>
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
  if (exists(path) && !is_regular_file(path)) Refuse(PathText(path), "is no plain file");
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

std::size_t TextItem(const std::string& text) {
  return itemOverhead + text.size() + 1;
}

// Told of a field, by its JSON pointer within the application, and of what is wrong there.
using Say = std::function<void(const std::string& field, const std::string& why)>;

void CheckText(const std::string& field, const std::string& text, const Say& say) {
  const std::string name = field.substr(1, field.find('/', 1) - 1);
  if (text.empty()) say(field, name + " is empty");
  if (std::ranges::any_of(text, [](char c) { return c >= 0 && c < 32; })) {
    say(field, name + " holds a control character");
  }
}

void FindFaults(const Application& app, const Say& say) {
  CheckText("/name", app.name, say);
  CheckText("/bundleId", app.bundleId, say);
  if (app.name.find_first_of("<>:\"/\\|?*") != std::string::npos) say("/name", "name cannot name a file");
  if (app.name.size() > longestName) say("/name", "name is longer than 100 bytes");
  std::size_t details = itemOverhead + 4;
  for (const auto& [field, names] :
       {std::pair{"/documentTypes/", &app.documentTypes}, std::pair{"/defaultTypes/", &app.defaultTypes},
        std::pair{"/urlSchemes/", &app.urlSchemes}}) {
    for (std::size_t i = 0; i < names->size(); ++i) {
      const std::string &name = (*names)[i], at = field + std::to_string(i);
      CheckText(at, name, say);
      if (name.find('\\') != std::string::npos) say(at, "\"" + name + "\" holds a backslash");
      details += TextItem(name);
    }
  }
  if (details > textRoom) say("", "types and schemes do not fit in one reply");
  std::size_t icons = 0;
  for (const Icon& icon : app.icons) icons += itemOverhead + icon.bmp.size();
  if (icons > iconsRoom) {
    say("/icons", "icons take " + WithThousands(icons) + " bytes as bitmaps, one reply holds " +
                      WithThousands(iconsRoom));
  }
}

void FindOddities(const Application& app, const Say& say) {
  for (const auto& [field, types] :
       {std::pair{"/documentTypes/", &app.documentTypes}, std::pair{"/defaultTypes/", &app.defaultTypes}}) {
    for (std::size_t i = 0; i < types->size(); ++i) {
      if ((*types)[i].find('.') != std::string::npos)
        say(field + std::to_string(i), "the type \"" + (*types)[i] + "\" holds a dot");
    }
  }
  const std::regex scheme("[A-Za-z][-A-Za-z0-9+.]*");
  for (std::size_t i = 0; i < app.urlSchemes.size(); ++i) {
    if (!std::regex_match(app.urlSchemes[i], scheme)) {
      say("/urlSchemes/" + std::to_string(i), "no address has the scheme \"" + app.urlSchemes[i] + "\"");
    }
  }
  for (std::size_t i = 0; i < app.icons.size(); ++i) {
    if (app.icons[i].bmp.empty()) continue;  // it could not be read
    const std::string at = "/icons/" + std::to_string(i);
    const std::uint32_t width = GetU32(app.icons[i].bmp, 18), height = GetU32(app.icons[i].bmp, 22);
    if (width != height) {
      say(at, "the icon is not square: " + std::to_string(width) + " by " + std::to_string(height));
    }
    for (std::size_t other = 0; other < i; ++other) {
      if (app.icons[other].size == app.icons[i].size && app.icons[other].accepted == app.icons[i].accepted) {
        say(at, "there are two icons of " + std::to_string(width) + " pixels");
        break;
      }
    }
  }
}

// Reads a catalogue to its end, whatever is wrong with it, and knows where in the file everything stands.
class Reader {
 public:
  Reader(const std::filesystem::path& folder, std::vector<Remark>& remarks)
      : folder_(folder),
        file_(PathText(folder / "catalogue.json")),
        text_(ReadFile(folder / "catalogue.json")),
        remarks_(remarks) {}

  // The applications with their JSON pointers.
  std::vector<std::pair<std::string, Application>> Read() {
    std::vector<std::pair<std::string, Application>> apps;
    const json root = Parse();
    if (!remarks_.empty() && remarks_.back().isFault) return apps;
    if (root.is_object() && !root.contains("applications")) Say("", "the list \"applications\" is missing");
    for (const auto& [key, value] : Take<std::map<std::string, json>>(root, "")) {
      if (key == "$schema") continue;
      if (key != "applications") {
        Say("/" + key, "unknown field \"" + key + "\"");
        continue;
      }
      for (const json& each : Take<std::vector<json>>(value, "/applications")) {
        const std::string at = "/applications/" + std::to_string(apps.size());
        apps.emplace_back(at, ApplicationOf(each, at));
      }
    }
    return apps;
  }

  void Say(const std::string& pointer, const std::string& why, bool isFault = true) {
    // What is not there is said of what it would be in.
    std::string there = pointer;
    while (!there.empty() && !places_.contains(there)) there.erase(there.rfind('/'));
    SayAt(places_[there], why, isFault);
  }

 private:
  struct Level {
    std::string pointer;
    bool isList = false;
    std::size_t next = 0;  // of a list
    std::string key;       // of an object
    std::set<std::string> keys;
  };

  json Parse() {
    std::istringstream in(text_);
    std::size_t end = 0;
    const auto note = [&](int, json::parse_event_t event, const json& parsed) {
      const std::size_t start = text_.find_first_not_of(" \t\r\n,:", end);
      end = static_cast<std::size_t>(in.rdbuf()->pubseekoff(0, std::ios::cur, std::ios::in));
      if (event == json::parse_event_t::key) {
        Level& level = levels_.back();
        level.key = parsed.get<std::string>();
        if (!level.keys.insert(level.key).second) {
          SayAt(start, "the key \"" + level.key + "\" is there twice; the last counts", false);
        }
      } else if (event == json::parse_event_t::object_end || event == json::parse_event_t::array_end) {
        levels_.pop_back();
      } else {
        std::string pointer;
        if (!levels_.empty()) {
          Level& level = levels_.back();
          pointer = level.pointer + "/" + (level.isList ? std::to_string(level.next++) : level.key);
        }
        places_[pointer] = start;
        if (event != json::parse_event_t::value) {
          levels_.push_back({pointer, event == json::parse_event_t::array_start, 0, "", {}});
        }
      }
      return true;
    };
    try {
      return json::parse(in, note);
    } catch (const json::parse_error& failure) {
      const std::string why = failure.what();  // the library's own tag, line and column, and the reason
      SayAt(failure.byte == 0 ? 0 : failure.byte - 1, why.substr(why.find(": ") + 2), true);
      return {};
    }
  }

  void SayAt(std::size_t offset, const std::string& why, bool isFault) {
    offset = std::min(offset, text_.size());
    const auto line =
        std::count(text_.begin(), text_.begin() + static_cast<std::ptrdiff_t>(offset), '\n') + 1;
    const std::size_t before = text_.substr(0, offset).rfind('\n');
    const std::size_t column = before == std::string::npos ? offset + 1 : offset - before;
    remarks_.push_back(
        {isFault, file_ + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + why});
  }

  template <class T>
  T Take(const json& value, const std::string& at) {
    try {
      return value.get<T>();
    } catch (const json::type_error& failure) {
      const std::string why = failure.what();  // begins with the library's own tag in brackets
      Say(at, why.substr(why.find("] ") + 2));
      return {};
    }
  }

  // A text that cannot be read is stood in for by one that is no fault itself.
  std::string TextOf(const json& value, const std::string& at) {
    const std::size_t before = remarks_.size();
    auto text = Take<std::string>(value, at);
    return remarks_.size() == before ? text : "unreadable" + std::to_string(before);
  }

  std::vector<std::string> TextsOf(const json& value, const std::string& at) {
    std::vector<std::string> texts;
    for (const json& item : Take<std::vector<json>>(value, at)) {
      texts.push_back(TextOf(item, at + "/" + std::to_string(texts.size())));
    }
    return texts;
  }

  // "file.png", or {"file": "file.png", "format": "bmp24"} for one that the guest is to refuse.
  Icon IconOf(const json& value, const std::string& at) {
    std::string file, format = "bmp32";
    if (value.is_string()) {
      file = value.get<std::string>();
    } else {
      for (const auto& [key, field] : Take<std::map<std::string, json>>(value, at)) {
        if (key == "file") {
          file = TextOf(field, at + "/file");
        } else if (key == "format") {
          format = TextOf(field, at + "/format");
        } else {
          Say(at + "/" + key, "unknown field \"" + key + "\"");
        }
      }
      if (format != "bmp32" && format != "bmp24") Say(at + "/format", "unknown format \"" + format + "\"");
    }
    try {
      const Icon icon = ReadIcon(folder_, file);
      return format == "bmp24" ? RefusedIcon(icon) : icon;
    } catch (const std::runtime_error& failure) {
      Say(at, failure.what());
      return {};
    }
  }

  Application ApplicationOf(const json& value, const std::string& where) {
    Application app;
    for (const auto& [key, field] : Take<std::map<std::string, json>>(value, where)) {
      const std::string at = where + "/" + key;
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
        app.anyType = Take<bool>(field, at);
      } else if (key == "icons") {
        for (const json& icon : Take<std::vector<json>>(field, at)) {
          app.icons.push_back(IconOf(icon, at + "/" + std::to_string(app.icons.size())));
        }
      } else {
        Say(at, "unknown field \"" + key + "\"");
      }
    }
    return app;
  }

  std::filesystem::path folder_;
  std::string file_, text_;
  std::vector<Remark>& remarks_;
  std::vector<Level> levels_;                  // while the text is parsed
  std::map<std::string, std::size_t> places_;  // where each value begins, by its JSON pointer
};

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
  std::vector<Remark> remarks;
  Catalogue catalogue = Check(folder, remarks);
  std::string faults;
  for (const Remark& remark : remarks) {
    if (remark.isFault) faults += (faults.empty() ? "" : "\n") + remark.text;
  }
  if (!faults.empty()) throw std::runtime_error(faults);
  return catalogue;
}

Catalogue Catalogue::Check(const std::filesystem::path& folder, std::vector<Remark>& remarks) {
  Reader reader(folder, remarks);
  Catalogue catalogue;
  for (auto& [at, app] : reader.Read()) {
    const auto say = [&, where = at](bool isFault) {
      return [&reader, where, isFault](const std::string& field, const std::string& why) {
        reader.Say(where + field, why, isFault);
      };
    };
    FindFaults(app, say(true));
    catalogue.FindConflicts(app, say(true));
    FindOddities(app, say(false));
    catalogue.applications_.push_back(std::move(app));
  }
  return catalogue;
}

const Application* Catalogue::Find(std::string_view name) const {
  const auto found = std::find_if(applications_.begin(), applications_.end(),
                                  [&](const Application& app) { return EqualNoCase(app.name, name); });
  return found == applications_.end() ? nullptr : &*found;
}

void Catalogue::FindConflicts(const Application& application, const Say& say) const {
  std::size_t list = TextItem(application.bundleId) + TextItem(application.name);
  for (const Application& other : applications_) {
    list += TextItem(other.bundleId) + TextItem(other.name);
    // Names that differ in case alone are one file in the guest.
    if (EqualNoCase(other.name, application.name)) {
      say("/name", "there are two of this name: " + application.name);
    }
    if (other.bundleId == application.bundleId) {
      say("/bundleId", application.name + " has the bundleId of " + other.name + ": " + other.bundleId);
    }
  }
  if (list > textRoom) say("", "the list of applications does not fit in one reply");
}

void Catalogue::Add(Application application) {
  const Say refuse = [&](const std::string&, const std::string& why) { Refuse(application.name, why); };
  FindFaults(application, refuse);
  FindConflicts(application, refuse);
  applications_.push_back(std::move(application));
}

const Application& Catalogue::Named(std::string_view name) const {
  if (const Application* found = Find(name)) return *found;
  std::vector<std::string> names;
  for (const Application& app : applications_) names.push_back(app.name);
  Refuse(std::string(name), "no such application" + DidYouMean(name, names));
}

void Catalogue::Remove(std::string_view name) {
  const Application* found = &Named(name);
  applications_.erase(applications_.begin() + (found - applications_.data()));
}

void Catalogue::Rename(std::string_view name, const std::string& newName) {
  const Application* found = &Named(name);
  Catalogue renamed;
  for (Application app : applications_) {
    if (app.name == found->name) app.name = newName;
    renamed.Add(std::move(app));
  }
  applications_ = std::move(renamed.applications_);
}

}  // namespace host
