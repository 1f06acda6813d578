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

#include "guest/text.h"

#define STBI_ONLY_PNG
#define STBI_NO_STDIO
#define STBI_NO_THREAD_LOCALS  // one thread reads images
#define STB_IMAGE_IMPLEMENTATION
#include <stb/stb_image.h>

namespace host {
namespace {

using nlohmann::json;

constexpr int largestIcon = 256;
constexpr std::size_t longestName = 100;   // bytes; keeps every guest path below 260 characters
constexpr std::size_t textRoom = 32748;    // data bytes of a list or details reply
constexpr std::size_t iconsRoom = 277764;  // data bytes of an icons reply
constexpr std::size_t longestKey = 255;    // UTF-16 units of a registry key's name

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
  return itemHeader + text.size() + 1;
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

// Calls `each` with the place of every type and scheme, the name itself, whether it is a type, and what its
// longest key has beside it: ".type", "type_auto_file".
template <class Each>
void ForEachName(const Application& app, const Each& each) {
  const auto go = [&](const std::string& field, const std::vector<std::string>& names, bool isType,
                      std::size_t beside) {
    for (std::size_t i = 0; i < names.size(); ++i) each(field + std::to_string(i), names[i], isType, beside);
  };
  go("/documentTypes/", app.documentTypes, true, 1);
  go("/defaultTypes/", app.defaultTypes, true, 10);
  go("/urlSchemes/", app.urlSchemes, false, 0);
}

void FindFaults(const Application& app, const Say& say) {
  CheckText("/name", app.name, say);
  CheckText("/bundleId", app.bundleId, say);
  if (app.name.find_first_of("<>:\"/\\|?*") != std::string::npos) say("/name", "name cannot name a file");
  if (app.name.size() > longestName) say("/name", "name is longer than 100 bytes");
  std::size_t details = itemHeader + 4, icons = 0;
  ForEachName(app, [&](const std::string& at, const std::string& name, bool, std::size_t beside) {
    CheckText(at, name, say);
    if (Widen(name).size() + beside > longestKey) {
      say(at, "\"" + name.substr(0, 20) + "...\" makes a registry key of more than 255 characters");
    }
    if (name.find('\\') != std::string::npos) say(at, "\"" + name + "\" holds a backslash");
    details += TextItem(name);
  });
  if (details > textRoom) say("", "types and schemes do not fit in one reply");
  for (const Icon& icon : app.icons) icons += itemHeader + icon.bmp.size();
  if (icons > iconsRoom) {
    say("/icons", "icons take " + WithThousands(icons) + " bytes as bitmaps, one reply holds " +
                      WithThousands(iconsRoom));
  }
}

void FindOddities(const Application& app, const Say& say) {
  const std::regex scheme("[A-Za-z][-A-Za-z0-9+.]*");
  ForEachName(app, [&](const std::string& at, const std::string& name, bool isType, std::size_t) {
    if (isType && name.find('.') != std::string::npos) say(at, "the type \"" + name + "\" holds a dot");
    if (!isType && !std::regex_match(name, scheme)) say(at, "no address has the scheme \"" + name + "\"");
  });
  for (std::size_t i = 0; i < app.icons.size(); ++i) {
    const Icon& icon = app.icons[i];
    if (icon.bmp.empty()) continue;  // it could not be read
    const std::string at = "/icons/" + std::to_string(i), width = std::to_string(GetU32(icon.bmp, 18)),
                      height = std::to_string(GetU32(icon.bmp, 22));
    if (width != height) say(at, "the icon is not square: " + width + " by " + height);
    if (std::any_of(
            app.icons.begin(), app.icons.begin() + static_cast<std::ptrdiff_t>(i),
            [&](const Icon& other) { return other.size == icon.size && other.accepted == icon.accepted; })) {
      say(at, "there are two icons of " + width + " pixels");
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
    ReadFields(root, "",
               {{"$schema", [](const json&, const std::string&) {}},
                {"applications", List(apps, &Reader::ApplicationOf)}});
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

  // What reads a value and is told its JSON pointer.
  using Field = std::function<void(const json& value, const std::string& at)>;

  void ReadFields(const json& object, const std::string& where, const std::map<std::string, Field>& fields) {
    for (const auto& [key, value] : Take<std::map<std::string, json>>(object, where)) {
      const std::string at = where + "/" + key;
      const auto field = fields.find(key);
      field == fields.end() ? Say(at, "unknown field \"" + key + "\"") : field->second(value, at);
    }
  }

  Field Text(std::string& to) {
    return [&](const json& value, const std::string& at) { to = TextOf(value, at); };
  }
  template <class T>
  Field List(std::vector<T>& to, T (Reader::*read)(const json&, const std::string&)) {
    return [this, &to, read](const json& value, const std::string& at) {
      for (const json& item : Take<std::vector<json>>(value, at)) {
        to.push_back((this->*read)(item, at + "/" + std::to_string(to.size())));
      }
    };
  }

  // A text that cannot be read is stood in for by one that is no fault itself.
  std::string TextOf(const json& value, const std::string& at) {
    const std::size_t before = remarks_.size();
    auto text = Take<std::string>(value, at);
    return remarks_.size() == before ? text : "unreadable" + std::to_string(before);
  }

  // "file.png", or {"file": "file.png", "format": "bmp24"} for one that the guest is to refuse.
  Icon IconOf(const json& value, const std::string& at) {
    std::string file, format = "bmp32";
    if (value.is_string()) {
      file = value.get<std::string>();
    } else {
      ReadFields(value, at, {{"file", Text(file)}, {"format", Text(format)}});
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

  std::pair<std::string, Application> ApplicationOf(const json& object, const std::string& where) {
    Application app;
    ReadFields(
        object, where,
        {{"bundleId", Text(app.bundleId)},
         {"name", Text(app.name)},
         {"documentTypes", List(app.documentTypes, &Reader::TextOf)},
         {"defaultTypes", List(app.defaultTypes, &Reader::TextOf)},
         {"urlSchemes", List(app.urlSchemes, &Reader::TextOf)},
         {"anyType", [&](const json& value, const std::string& at) { app.anyType = Take<bool>(value, at); }},
         {"icons", List(app.icons, &Reader::IconOf)}});
    return {where, app};
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
    const std::string& where = at;
    bool isFault = true;
    const Say say = [&](const std::string& field, const std::string& why) {
      reader.Say(where + field, why, isFault);
    };
    FindFaults(app, say);
    catalogue.FindConflicts(app, say);
    isFault = false;
    FindOddities(app, say);
    catalogue.applications_.push_back(std::move(app));
  }
  return catalogue;
}

const Application* Catalogue::Find(std::string_view name) const {
  const auto found = std::ranges::find_if(
      applications_, [&](const Application& app) { return EqualNoCase(app.name, name); });
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
