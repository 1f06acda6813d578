// The kinds are tied to the calls that can cause them, so that the same difference for another reason is a
// fault.
#include "trials/lasting.h"

#include <fnmatch.h>

#include <algorithm>

namespace trials {
namespace {

// Causes by how their names begin, none for any; differences as patterns, in which {gone} stands for an
// application that the story drops or renames, and {typeless} for one without types. Both are split at "; ".
struct Lasting {
  const char *what, *causes, *differences;
};

constexpr Lasting kinds[] = {
    {"a launcher without one of its icon images", "UpdateResourceW; allocation", "wrong: C:*(Mac).exe:*"},
    {"a shortcut without one of its properties",
     "IShellLinkW::SetPath; IShellLinkW::SetDescription; IUnknown::QueryInterface; IPropertyStore::",
     "wrong: C:*(Mac).lnk:*"},
    {"a launcher without its shortcut", "death", "missing: C:*(Mac).lnk"},
    {"an application key without its open command", "death",
     "missing: *\\Applications\\*(Mac).exe, value*; missing: *\\Applications\\*(Mac).exe\\shell*"},
    // What is made with a launcher and not again.
    {"an application without types, whose launcher is there, without its open command", "",
     "missing: *\\Applications\\{typeless}.exe, value*; missing: *\\Applications\\{typeless}.exe\\shell*"},
    {"an offer without its default value", "RegSetValueExW; death",
     "missing: *\\Classes\\.*\\OpenWithList\\*(Mac).exe, value*"},
    {"entries or the shortcut of an application that is gone", "", "unexpected: *{gone}*"},
    {"offers of an application whose name was not converted", "MultiByteToWideChar",
     "unexpected: *\\Classes\\.*\\OpenWithList\\ (Mac).exe*"},
    {"claims as earlier versions of Windows have them", "VerifyVersionInfoW",
     "*: *\\Classes\\.*; *: *\\Classes\\*_auto_file*"},
};

bool Fits(const std::string& difference, const std::string& pattern, const Story& story) {
  const std::size_t mark = pattern.find('{'), end = pattern.find('}');
  if (mark == std::string::npos) return fnmatch(pattern.c_str(), difference.c_str(), FNM_NOESCAPE) == 0;
  const Lines& names = pattern.compare(mark, 5, "{gone") == 0 ? story.gone() : story.typeless();
  return std::ranges::any_of(names, [&](const std::string& name) {
    return Fits(difference, pattern.substr(0, mark) + name + pattern.substr(end + 1), story);
  });
}

bool FitsOne(const std::string& difference, const std::string& patterns, const Story& story) {
  return std::ranges::any_of(Split(patterns, "; "),
                             [&](const auto& pattern) { return Fits(difference, pattern, story); });
}

}  // namespace

const char* LastingKind(const Story& story, const Scene& scene, const std::string& cause,
                        const std::string& difference) {
  for (const Lasting& kind : kinds) {
    const Lines causes = Split(kind.causes, "; ");
    const bool isCause = causes.empty() || std::ranges::any_of(causes, [&](const auto& each) {
                           return cause.starts_with(each);
                         });
    if (isCause && FitsOne(difference, kind.differences, story)) return kind.what;
  }
  const bool wasThere = std::ranges::find(scene.held, difference) != scene.held.end();
  return scene.name == "off" && wasThere
             ? "what an \"off\" did not reach, of an application that is no longer listed"
             : nullptr;
}

// What removes an application goes on after a failure; with its key and its launcher gone, nothing leads to
// these.
bool IsLeftForGood(const Story& story, const std::string& difference) {
  return FitsOne(difference, "*\\Tsrn.Url.{gone}*; *\\MacApps\\{gone}*; *\\RegisteredApplications*{gone}",
                 story);
}

}  // namespace trials
