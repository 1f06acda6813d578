// What the page is told: of each step only what it changed, of equal pictures one.
#include "host/report.h"

#include <algorithm>
#include <functional>
#include <span>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "guest/difference.h"
#include "guest/launcher_view.h"
#include "guest/places.h"
#include "guest/text.h"
#include "host/pictures.h"

namespace host {

extern const std::string_view page;  // made of the three files of `page` when the tool is built

namespace {

using nlohmann::json;

std::string Base64(std::string_view bytes) {
  constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      group = group << 8 | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      text += at + i <= bytes.size() ? digits[group >> (18 - 6 * i) & 63] : '=';
    }
  }
  return text;
}

std::string Part(const Bytes& bytes, std::size_t from, std::size_t to) {
  return from < to ? std::string(reinterpret_cast<const char*>(bytes.data()) + from, to - from) : "";
}

// Of the mask behind an icon's pixels, for which its header counts the height twice; 0 without a header.
std::size_t MaskSize(const Bytes& image) {
  if (image.size() < 40) return 0;
  const std::size_t size = (std::size_t{GetU32(image, 4)} + 31) / 32 * 4 * (GetU32(image, 8) / 2);
  return std::min(size, image.size());
}

std::map<std::string, std::string> Owners(const Entries& registry, const std::string& launcherFolder) {
  std::map<std::string, std::string> owners;
  for (const auto& [path, data] : registry) {
    const auto place = PlaceOf(registry, path, launcherFolder);
    if (place && !place->owner.empty()) owners[path] = place->owner + launcherSuffix;
  }
  return owners;
}

// Who opens the types and schemes of the registry, and of a catalogue that is mirrored.
std::map<std::string, json, PathLess> Opens(const Snapshot& guest, const Catalogue& shared) {
  std::map<std::string, json, PathLess> opens;
  for (const auto& [path, data] : guest.registry) {
    const std::size_t mark = path.find(valueMark), start = classesKey.size() + 1;
    if (path.starts_with(classesKey + "\\.") && path.find("\\OpenWith") != std::string::npos) {
      opens[path.substr(start, path.find('\\', start) - start)];
    } else if (IsBelow(path, macAppsKey) && mark != std::string::npos) {
      opens[path.substr(mark + 1) + ":"];
    }
  }
  const Catalogue catalogue = guest.launchers.empty() ? Catalogue() : shared;
  for (const Application& app : catalogue.applications()) {
    for (const std::string& type : app.documentTypes) opens["." + type];
    for (const std::string& type : app.defaultTypes) opens["." + type];
    for (const std::string& scheme : app.urlSchemes) opens[scheme + ":"];
  }
  const Surroundings around = LookAround();
  for (auto& [what, said] : opens) {
    Opening opening = WhoOpens(guest, around, what);
    for (std::string& app : opening.offered) app += launcherSuffix;
    said = {{"why", opening.why}, {"otherwise", opening.otherwise}, {"offered", opening.offered}};
    if (!opening.application.empty()) said["app"] = opening.application + launcherSuffix;
  }
  return opens;
}

}  // namespace

void Report::Hear(const Exchange& exchange) {
  talk_.push_back(Described(exchange));
}

void Report::AddStep(const std::string& title, const Snapshot& guest, const Catalogue& shared) {
  json step = {{"title", title},
               {"sharing", !guest.launchers.empty()},
               {"conversation", std::exchange(talk_, json::array())}};
  for (const char* part : {"registry", "owners", "opens", "files", "launchers", "shortcuts"}) {
    step[part] = json::array();
  }
  if (json catalogue = CatalogueOf(shared); catalogue != shared_)
    step["catalogue"] = shared_ = std::move(catalogue);
  const auto tell = [&]<class Map>(const char* part, const Map& before, const Map& after) {
    using Value = const typename Map::mapped_type*;
    ForEachDifference(before, after, [&](const std::string& path, Value, Value now) {
      step[part].push_back({path, now ? json(*now) : json()});
    });
  };
  tell("registry", last_.registry, guest.registry);
  auto owners = Owners(guest.registry, LauncherFolder());
  tell("owners", owners_, owners);
  owners_ = std::move(owners);
  auto opens = Opens(guest, shared);
  tell("opens", opens_, opens);
  opens_ = std::move(opens);
  tell("files", last_.files, guest.files);
  ForEachDifference(last_.files, guest.files,
                    [&](const std::string& path, const std::string*, const std::string* now) {
                      if (guest.launchers.contains(path) || last_.launchers.contains(path)) {
                        step["launchers"].push_back({path, now ? LauncherOf(path) : json()});
                      } else if (const auto shortcut = now ? ReadShortcut(path) : std::nullopt) {
                        step["shortcuts"].push_back(
                            {path, {{"target", shortcut->target}, {"description", shortcut->description}}});
                      } else if (path.ends_with(".lnk")) {
                        step["shortcuts"].push_back({path, json()});
                      }
                    });
  steps_.push_back(std::move(step));
  last_ = guest;
}

json Report::CatalogueOf(const Catalogue& catalogue) {
  json applications = json::array();
  for (const Application& app : catalogue.applications()) {
    json icons = json::array();
    for (const Icon& icon : app.icons) {
      icons.push_back({{"size", icon.size},
                       {"accepted", icon.accepted},
                       {"icon", Keep(Part(icon.bmp, 54, icon.bmp.size()), [&] { return PngOf(icon); })}});
    }
    applications.push_back(json(FieldsOf(app)));
    applications.back()["icons"] = std::move(icons);
  }
  return applications;
}

json Report::LauncherOf(const std::string& path) {
  const LauncherFile launcher = ReadLauncherFile(path);
  json icons = json::array();
  for (const LauncherIcon& icon : launcher.icons) {
    const std::size_t mask = MaskSize(icon.image);
    icons.push_back(
        {{"size", icon.size()},
         {"icon", Keep(Part(icon.image, 40, icon.image.size() - mask), [&] { return PngOf(icon); })}});
  }
  return {{"bundleId", launcher.bundleId},
          {"name", launcher.name},
          {"version", launcher.version},
          {"icons", icons}};
}

// A picture's name among the icons, each of which is encoded once; empty when it cannot be.
std::string Report::Keep(const std::string& pixels, const std::function<std::string()>& png) try {
  std::string name = std::to_string(pixels.size()) + "-" + std::to_string(std::hash<std::string>()(pixels));
  if (!icons_.contains(name)) icons_[name] = "data:image/png;base64," + Base64(png());
  return name;
} catch (const std::runtime_error&) {
  return "";
}

void Report::Write(const std::filesystem::path& file) const {
  const json story = {{"icons", icons_}, {"steps", steps_}};
  std::string data = story.dump(-1, ' ', false, json::error_handler_t::replace);
  for (auto at = data.find('<'); at != std::string::npos; at = data.find('<', at)) {
    data.replace(at, 1, "\\u003c");  // nothing in a text may end the element that holds the data
  }
  const std::string_view place = R"({"steps": []})";
  std::string text(page);
  text.replace(text.find(place), place.size(), data);
  WriteFileWhole(file, text);
}

}  // namespace host
