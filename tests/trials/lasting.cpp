// The kinds are tied to the calls that can cause them, so that the same difference for another reason is a
// fault.
#include "trials/lasting.h"

#include <algorithm>
#include <regex>

namespace trials {
namespace {

struct Kind {
  const char* what;
  const char* causes;
  const char* differences;
};

constexpr const char* anything = ".*";
// Of the example catalogue: the applications that the changed one no longer lists, and those without types.
#define GONE "(Café Chess|Ink Garden) \\(Mac\\)"
#define TYPELESS "(Lantern|Wayfinder) \\(Mac\\)"

const Kind kinds[] = {
    {"a launcher without one of its icon images", "UpdateResourceW|allocation",
     R"(wrong: .* \(Mac\)\.exe: .* bytes.*)"},
    {"a shortcut without one of its properties",
     "IShellLinkW::SetPath|IShellLinkW::SetDescription|IUnknown::QueryInterface|IPropertyStore::.*",
     R"(wrong: .* \(Mac\)\.lnk: .* bytes.*)"},
    {"a launcher without its shortcut", "death", R"(missing: .* \(Mac\)\.lnk)"},
    {"an application key without its open command", "death",
     R"(missing: .*\\Applications\\.* \(Mac\)\.exe(\||\\shell.*))"},
    {"an offer without its default value", "RegSetValueExW|death",
     R"(missing: .*\\OpenWithList\\.* \(Mac\)\.exe\|)"},
    {"entries or the shortcut of an application that is gone", anything, "extra: .*\\\\.*" GONE ".*"},
    {"an application without types, whose launcher is there, without its open command", anything,
     "missing: .*\\\\Applications\\\\" TYPELESS "\\.exe(\\||\\\\shell.*)"},
    {"offers of an application whose name was not converted", "MultiByteToWideChar",
     R"(extra: .*\\OpenWithList\\ \(Mac\)\.exe.*)"},
    {"claims as earlier versions of Windows have them", "VerifyVersionInfoW",
     R"([a-z]+: HKCU\\Software\\Classes\\(\.[a-z]+|[a-z]+_auto_file)(\\.*|\|.*)?)"},
};
// What removes an application goes on after a failure; with its key and its launcher gone, nothing leads to
// these.
constexpr const char* forGood =
    R"((after "off", unexpected|extra): HKCU\\.*(\\Tsrn\.Url\.|\\MacApps\\|\\RegisteredApplications(\||, value )))" GONE
    ".*";
#undef GONE
#undef TYPELESS

bool WasThere(const host::Snapshot& held, std::string difference) {
  const std::string extra = "extra: ";
  if (!difference.starts_with(extra)) return false;
  std::replace(difference.begin(), difference.end(), '|', host::valueMark);
  const std::string path = difference.substr(extra.size());
  return held.registry.contains(path) || held.files.contains(path);
}

}  // namespace

const char* LastingKind(const Scene& scene, const std::string& cause, const std::string& difference) {
  for (const Kind& kind : kinds) {
    if (std::regex_match(cause, std::regex(kind.causes)) &&
        std::regex_match(difference, std::regex(kind.differences))) {
      return kind.what;
    }
  }
  const bool left = scene.name == "off" && WasThere(scene.held, difference);
  return left ? "what an \"off\" did not reach, of an application that is no longer listed" : nullptr;
}

bool IsLeftForGood(const std::string& difference) {
  return std::regex_match(difference, std::regex(forGood));
}

bool IsResidue(const std::string& difference) {
  return std::regex_match(
      difference, std::regex(R"((extra|missing): HKCU\\Software\\Classes\\\.[^\\]*(\\OpenWith.*|\|.*)?)"));
}

}  // namespace trials
