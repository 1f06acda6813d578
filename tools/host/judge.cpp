// The judge's comparison. What must be there comes from the model of the guest, which mirrors the catalogue
// into this guest as it would be without any application; what is there and carries an application's mark is
// then either asked for, or kept on purpose, or wrong.
#include "host/judge.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <ostream>

#include "guest/difference.h"
#include "guest/launcher_view.h"
#include "guest/places.h"
#include "host/mirror.h"

namespace host {
namespace {

using Kind = Finding::Kind;

// A platform may keep a link's target in the code page of its system, with a question mark, which no path can
// hold, for what that lacks.
bool LeadsTo(const std::string& target, const std::string& path) {
  return std::ranges::equal(Widen(target), Widen(path), [](WCHAR is, WCHAR must) {
    return is == must || (is == TEXT('?') && must >= 0x80);
  });
}

class Judgement {
 public:
  Judgement(const Snapshot& guest, const Catalogue& catalogue, bool sharing)
      : guest_(guest), catalogue_(catalogue), sharing_(sharing), around_(LookAround()) {}

  std::vector<Finding> Find() {
    Snapshot clean{{}, guest_.registry, {}};
    std::erase_if(clean.registry, [&](const auto& entry) { return PlaceOf(guest_.registry, entry.first); });
    if (sharing_) {
      for (const std::string& key : {applicationsKey, toolsKey, registeredKey}) clean.registry[key];
      Mirror model(clean, around_);
      model.On(Buildable());
      expected_ = model.expected();
    } else {
      expected_ = clean;
    }
    for (const Application& app : catalogue_.applications()) {
      if (sharing_) JudgeFiles(app);
    }
    JudgeOtherFiles();
    JudgeRegistry();
    std::ranges::stable_sort(findings_, {}, [](const Finding& each) {
      return std::pair(each.application, each.kind == Kind::Kept);
    });
    return std::move(findings_);
  }

 private:
  void Add(Kind kind, const std::string& application, const std::string& text, const std::string& path) {
    findings_.push_back({kind, application, text, path});
  }

  const Application* Listed(const std::string& name) const {
    const Application* found = catalogue_.Find(name);
    return found && found->name == name ? found : nullptr;
  }

  // The catalogue as far as the guest can mirror it: a launcher of earlier serves an application whose icons
  // are all refused by now.
  Catalogue Buildable() const {
    Catalogue buildable;
    for (Application app : catalogue_.applications()) {
      const auto launcher = guest_.launchers.find(PathOfLauncher(app.name));
      if (!CanBeBuilt(app) && launcher != guest_.launchers.end() && !launcher->second.bundleId.empty()) {
        app.icons.assign(1, {});
      }
      buildable.Add(std::move(app));
    }
    return buildable;
  }

  // True when the file is there under its exact name.
  bool HasFile(const Application& app, const char* what, const std::string& path) {
    const auto found = guest_.files.find(path);
    if (found == guest_.files.end()) {
      Add(Kind::Missing, app.name, std::string(what) + " is missing", path);
      return false;
    }
    if (found->first == path) return true;
    Add(Kind::Wrong, app.name, std::string(what) + " is spelt " + found->first, found->first);
    return false;
  }

  void JudgeFiles(const Application& app) {
    const std::string launcher = PathOfLauncher(app.name), shortcut = PathOfShortcut(app.name);
    if (!expected_.files.contains(launcher)) return;
    if (HasFile(app, "the launcher", launcher)) JudgeLauncher(app, launcher);
    if (HasFile(app, "the shortcut", shortcut)) JudgeShortcut(app, shortcut, launcher);
  }

  void JudgeLauncher(const Application& app, const std::string& path) {
    const LauncherFile file = ReadLauncherFile(path);
    const auto wrong = [&](const std::string& text) { Add(Kind::Wrong, app.name, text, path); };
    if (file.bundleId.empty()) return wrong("the launcher carries no identity");
    if (file.name != app.name) wrong("the launcher carries the name \"" + file.name + "\"");
    if (!file.marked) wrong("the launcher's last resource, its marker, is not there");
    ForEachDifference(ExpectedVersion(app.name), file.version,
                      [&](const std::string& key, const std::string* must, const std::string* is) {
                        wrong("the launcher's version information, " + key + ": " +
                              (is ? "\"" + *is + "\"" : "nothing") + " instead of " +
                              (must ? "\"" + *must + "\"" : "nothing"));
                      });
    if (file.bundleId != app.bundleId) {
      Add(Kind::Kept, app.name,
          "the launcher stays the one of " + file.bundleId + ", though the host has " + app.bundleId, path);
    } else if (!CanBeBuilt(app)) {
      Add(Kind::Kept, app.name, "the launcher stays, though the guest takes none of the host's icons", path);
    } else {
      JudgeIcons(app, file.icons, wrong);
    }
  }

  template <class Wrong>
  void JudgeIcons(const Application& app, const std::vector<LauncherIcon>& icons, const Wrong& wrong) {
    std::vector<LauncherIcon> expected;
    std::uint32_t number = 448;
    for (const Icon& icon : app.icons) {
      ++number;
      if (icon.accepted) expected.push_back(ExpectedIcon(icon, number));
    }
    for (std::size_t i = 0; i < std::max(icons.size(), expected.size()); ++i) {
      const bool isMissing = i >= icons.size(), isExtra = i >= expected.size();
      const std::string of =
          " icon of " + std::to_string((isMissing ? expected : icons)[i].size()) + " pixels";
      if (isMissing || isExtra) {
        wrong(isMissing ? "the launcher lacks the" + of
                        : "the launcher has an" + of + " that the catalogue has not");
        continue;
      }
      const Bytes &is = icons[i].image, &must = expected[i].image;
      std::size_t pixels = 0;
      for (std::size_t at = 40; is.size() == must.size() && at + 4 <= is.size(); at += 4) {
        pixels += !std::equal(&is[at], &is[at] + 4, &must[at]);
      }
      if (icons[i] == expected[i]) continue;
      wrong("the launcher's" + of +
            (pixels != 0 ? " differs from the catalogue's in " + std::to_string(pixels) + " pixels"
                         : " is not the catalogue's"));
    }
  }

  void JudgeShortcut(const Application& app, const std::string& path, const std::string& launcher) {
    const auto wrong = [&](const std::string& text) { Add(Kind::Wrong, app.name, text, path); };
    const std::optional<Shortcut> shortcut = ReadShortcut(path);
    if (!shortcut) return wrong("the shortcut is no shell link");
    if (!LeadsTo(shortcut->target, launcher)) wrong("the shortcut leads to \"" + shortcut->target + "\"");
    if (shortcut->description != "Tessarine Shared Application shortcut") {
      wrong("the shortcut's description is \"" + shortcut->description + "\"");
    }
    if (!keepsProperties_) return;
    if (!shortcut->staysUnpinned) wrong("the shortcut does not say that it is not to be pinned");
    if (!shortcut->staysUnannounced) wrong("the shortcut does not say that it is not to be announced as new");
  }

  static VersionBlocks ExpectedVersion(const std::string& name) {
    return {{"VS_VERSION_INFO", "feef04bd 10000 10000 0 10000 0 20 20 4 1 0 0 0"},
            {"StringFileInfo", ""},
            {"040904B0", ""},
            {"Comments", "Tessarine Shared Application"},
            {"CompanyName", "Tessarine Software International, Inc."},
            {"FileDescription", name + launcherSuffix},
            {"FileVersion", "1.0.0.0"},
            {"ProductName", "Tessarine Tools Center"},
            {"SpecialBuild", "Tessarine Shared Application"},
            {"VarFileInfo", ""},
            {"Translation", "4b00409"}};
  }

  // The picture with its height doubled, and a mask of zeros behind the pixels.
  static LauncherIcon ExpectedIcon(const Icon& icon, std::uint32_t number) {
    const std::uint32_t width = GetU32(icon.bmp, 18), height = GetU32(icon.bmp, 22);
    LauncherIcon expected;
    expected.image.assign(icon.bmp.begin() + 14, icon.bmp.end());
    Bytes doubled;
    PutU32(doubled, 2 * height);
    std::copy(doubled.begin(), doubled.end(), expected.image.begin() + 8);
    expected.image.resize(expected.image.size() + std::size_t{(width + 31) / 32 * 4} * height);
    PutU16(expected.entry, width % 256 + height % 256 * 256);
    for (const std::uint32_t half : {0u, 1u, 32u}) PutU16(expected.entry, half);
    PutU32(expected.entry, static_cast<std::uint32_t>(expected.image.size()));
    PutU16(expected.entry, number);
    return expected;
  }

  void JudgeOtherFiles() {
    for (const auto& [path, data] : guest_.files) {
      if (sharing_ && (expected_.files.contains(path) || data.empty())) continue;
      const std::string name = path.substr(path.rfind('\\') + 1);
      const bool launcher = name.ends_with(programSuffix), shortcut = name.ends_with(shortcutSuffix);
      if (launcher || shortcut) {
        Add(Kind::Unexpected, WithoutEnd(name, programSuffix),
            std::string(launcher ? "the launcher" : "the shortcut") + " is there", path);
      } else if (!sharing_) {
        Add(Kind::Unexpected, "", path + " is there", path);
      } else {
        Add(Kind::Kept, "", path + ", a file of somebody else's", path);
      }
    }
  }

  std::optional<Place> PlaceOf(const Entries& registry, const std::string& path) const {
    std::optional<Place> place = host::PlaceOf(registry, path, around_.launcherFolder);
    if (place && !place->scheme.empty()) place->owner = OwnerOfScheme(place->scheme);
    return place;
  }

  // The first that has the scheme.
  std::string OwnerOfScheme(const std::string& scheme) const {
    for (const Application& app : catalogue_.applications()) {
      if (std::ranges::any_of(app.urlSchemes, [&](const auto& each) { return EqualNoCase(each, scheme); })) {
        return app.name;
      }
    }
    return "";
  }

  bool IsKept(const Place& place, const std::string& path) const {
    const Application* app = Listed(place.owner);
    // The withdrawal knows an application's offers by its application key, which goes with it.
    if (!sharing_) return place.residue && !(app && CanBeBuilt(*app));
    const std::string supported = applicationsKey + "\\" + place.owner + programSuffix + "\\SupportedTypes";
    return place.lasting ||
           (app && app->documentTypes.empty() && (EqualNoCase(path, supported) || IsBelow(path, supported)));
  }

  void JudgeRegistry() {
    std::string whole;  // a key that is missing or unexpected as a whole: what lies in it is not said again
    ForEachDifference(
        expected_.registry, guest_.registry,
        [&](const std::string& path, const std::string* must, const std::string* is) {
          if (!whole.empty() && IsBelow(path, whole)) return;
          const std::optional<Place> place = PlaceOf(must ? expected_.registry : guest_.registry, path);
          const bool required = path == applicationsKey || path == toolsKey || path == registeredKey;
          if (!place && !required) return;
          if ((!must || !is) && path.find(valueMark) == std::string::npos) whole = path;
          const std::string what = place ? place->what : "the key " + path;
          const std::string owner = place ? place->owner : "";
          if (!is) {
            Add(Kind::Missing, owner, what + " is missing", path);
          } else if (!must) {
            const bool kept = IsKept(*place, path);
            Add(kept ? Kind::Kept : Kind::Unexpected, owner, what + (kept ? "" : " is there"), path);
          } else {
            // Before Windows 7 a type that has a default is not claimed again.
            const bool kept = around_.beforeWindows7 && place->lasting && PlaceOf(guest_.registry, path);
            Add(kept ? Kind::Kept : Kind::Wrong, owner, what + ": " + *is + " instead of " + *must, path);
          }
        });
    for (const Application& app : catalogue_.applications()) {
      for (const std::string& scheme : app.urlSchemes) {
        const std::string key = classesKey + "\\" + scheme;
        if (sharing_ && guest_.registry.contains(ValuePath(key, "URL Protocol")) &&
            !IsOurScheme(guest_.registry, key)) {
          Add(Kind::Kept, app.name, "the scheme " + scheme + " is declared by somebody else", key);
        }
      }
    }
  }

  const Snapshot& guest_;
  const Catalogue& catalogue_;
  bool sharing_;
  Surroundings around_;
  bool keepsProperties_ = KeepsShortcutProperties();
  Snapshot expected_;
  std::vector<Finding> findings_;
};

}  // namespace

std::vector<Finding> Judge(const Snapshot& guest, const Catalogue& catalogue, bool sharing) {
  return Judgement(guest, catalogue, sharing).Find();
}

std::vector<std::string> Unmirrored(const Catalogue& catalogue, const Snapshot& guest) {
  std::vector<std::string> names;
  for (const Application& app : catalogue.applications()) {
    if (!guest.launchers.contains(PathOfLauncher(app.name))) names.push_back(app.name);
  }
  return names;
}

std::size_t CountKept(const std::vector<Finding>& findings) {
  return static_cast<std::size_t>(
      std::ranges::count(findings, Kind::Kept, [](const Finding& each) { return each.kind; }));
}

void PrintFindings(std::ostream& out, const std::vector<Finding>& findings) {
  for (const Finding& finding : findings) {
    out << (finding.application.empty() ? "" : finding.application + ": ")
        << (finding.kind == Kind::Kept ? "kept: " : "") << finding.text << "\n";
  }
  const std::size_t kept = CountKept(findings), differences = findings.size() - kept;
  out << (differences == 0 ? "no" : std::to_string(differences)) << " difference"
      << (differences > 1 ? "s" : "");
  if (kept != 0) out << ", " << kept << " kept on purpose";
  out << "\n";
}

void PrintFindingsAsJson(std::ostream& out, const std::vector<Finding>& findings) {
  constexpr const char* kinds[] = {"missing", "wrong", "unexpected", "kept"};
  const std::size_t kept = CountKept(findings);
  nlohmann::json all = {
      {"differences", findings.size() - kept}, {"kept", kept}, {"findings", nlohmann::json::array()}};
  for (const Finding& finding : findings) {
    const std::size_t mark = finding.path.find(valueMark);
    nlohmann::json& one = all["findings"].emplace_back();
    one = {{"kind", kinds[static_cast<int>(finding.kind)]},
           {"application", finding.application},
           {"text", finding.text},
           {"path", finding.path.substr(0, mark)}};
    if (mark != std::string::npos) one["value"] = finding.path.substr(mark + 1);
  }
  out << all.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
}

}  // namespace host
