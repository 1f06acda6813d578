// The kinds are tied to the calls that can cause them, so that the same difference for another reason is a
// fault. Paths stand as patterns in which a question mark is the sign before a value's name.
#include "trials/lasting.h"

#include <fnmatch.h>

#include <algorithm>
#include <optional>

namespace trials {
namespace {

using enum Difference::How;

const std::string classes = host::classesKey + "\\";

// What is made with a launcher and not again.
Lines OpenCommandOf(const std::string& launcher) {
  return {classes + "Applications\\" + launcher + ".exe?",
          classes + "Applications\\" + launcher + ".exe\\shell*"};
}

struct Lasting {
  const char* what;
  Lines causes;  // calls by how their names begin, "allocation" or "death"; none: any
  std::optional<Difference::How> how;
  Lines paths;  // {gone}: of an application that the story drops or renames, {typeless}: without types
};

const Lasting kinds[] = {
    {"a launcher without one of its icon images",
     {"UpdateResourceW", "allocation"},
     Changed,
     {"C:*(Mac).exe"}},
    {"a shortcut without one of its properties",
     {"IShellLinkW::SetPath", "IShellLinkW::SetDescription", "IUnknown::QueryInterface", "IPropertyStore::"},
     Changed,
     {"C:*(Mac).lnk"}},
    {"a launcher without its shortcut", {"death"}, Missing, {"C:*(Mac).lnk"}},
    {"an application key without its open command", {"death"}, Missing, OpenCommandOf("*(Mac)")},
    {"an application without types, whose launcher is there, without its open command",
     {},
     Missing,
     OpenCommandOf("{typeless}")},
    {"an offer without its default value",
     {"RegSetValueExW", "death"},
     Missing,
     {classes + ".*\\OpenWithList\\*(Mac).exe?"}},
    {"entries or the shortcut of an application that is gone", {}, New, {"*{gone}*"}},
    {"offers of an application whose name was not converted",
     {"MultiByteToWideChar"},
     New,
     {classes + ".*\\OpenWithList\\ (Mac).exe*"}},
    {"claims as earlier versions of Windows have them",
     {"VerifyVersionInfoW"},
     {},
     {classes + ".*", classes + "*_auto_file*"}},
};

bool Fits(const std::string& path, const std::string& pattern, const Story& story) {
  for (const std::string mark : {"{gone}", "{typeless}"}) {
    const std::size_t at = pattern.find(mark);
    if (at == std::string::npos) continue;
    return std::ranges::any_of(
        mark == "{gone}" ? story.gone() : story.typeless(), [&](const std::string& name) {
          return Fits(path, std::string(pattern).replace(at, mark.size(), name), story);
        });
  }
  return fnmatch(pattern.c_str(), path.c_str(), FNM_NOESCAPE) == 0;
}

bool FitsOne(const std::string& path, const Lines& patterns, const Story& story) {
  return std::ranges::any_of(patterns, [&](const auto& pattern) { return Fits(path, pattern, story); });
}

}  // namespace

const char* LastingKind(const Story& story, const Scene& scene, const std::string& cause,
                        const Difference& difference) {
  const std::string& path = difference.path;
  const auto isCause = [&](const std::string& call) { return cause.starts_with(call); };
  for (const Lasting& kind : kinds) {
    if ((kind.causes.empty() || std::ranges::any_of(kind.causes, isCause)) &&
        difference.how == kind.how.value_or(difference.how) && FitsOne(path, kind.paths, story)) {
      return kind.what;
    }
  }
  const bool wasThere = scene.held.registry.contains(path) || scene.held.files.contains(path);
  return scene.name == "off" && difference.how == New && wasThere
             ? "what an \"off\" did not reach, of an application that is no longer listed"
             : nullptr;
}

// What removes an application goes on after a failure; with its key and its launcher gone, nothing leads to
// these.
bool IsLeftForGood(const Story& story, const std::string& path) {
  return FitsOne(path,
                 {"*\\Tsrn.Url.{gone}*", "*\\MacApps\\{gone}*", "*\\RegisteredApplications?{gone}",
                  "*\\RegisteredApplications, value {gone}"},
                 story);
}

bool IsResidue(const Difference& difference) {
  const std::string& path = difference.path;
  const std::size_t below = path.find('\\', classes.size());
  return difference.how != Changed && path.starts_with(classes + ".") &&
         (below == std::string::npos || path.compare(below, 9, "\\OpenWith") == 0);
}

}  // namespace trials
