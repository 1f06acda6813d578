// One application among a hundred whose host lies about it, in every way that there is: what belongs to the
// others must be, to the byte, what it is without that one.
#include <platform/control.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>

#include "host/prepare.h"
#include "host/session.h"
#include "trials/expectations.h"
#include "trials/misfit_ways.h"
#include "trials/trials.h"

namespace trials {
namespace {

using host::Bytes;

constexpr std::size_t others = 99, place = 50;

// Everything in the guest: files by path, registry entries ("[key]", and "[key] value" for each value).
using Guest = std::map<std::string, std::string>;

// What names of the others' own keys hold; see Other.
constexpr const char* ownMarks[] = {"App 1", "doc1", "own1", "x-app1"};

host::Application Other(std::size_t number) {
  const std::string n = std::to_string(100 + number);
  host::Application app;
  app.bundleId = "app." + n;
  app.name = "App " + n;
  app.documentTypes = {"doc" + n, "shared"};
  app.defaultTypes = {"own" + n};
  app.urlSchemes = {"x-app" + n};
  app.icons.emplace_back().bmp = SmallBitmap();
  return app;
}

Guest Hold(const std::filesystem::path& root) {
  Guest guest;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    std::string& content = guest[entry.path().lexically_relative(root).string()];
    if (!entry.is_regular_file()) continue;
    std::ifstream in(entry.path(), std::ios::binary);
    content.assign(std::istreambuf_iterator<char>(in), {});
  }
  std::string key;
  const std::string registry = platform::SaveRegistry();
  for (std::size_t at = 0; at < registry.size();) {
    const std::size_t end = registry.find('\n', at);
    const std::string line = registry.substr(at, end - at);
    if (line.starts_with('[')) key = line;
    if (!line.empty()) guest[line.starts_with('[') ? line : key + " " + line];
    at = end + 1;
  }
  return guest;
}

// The list with the misfit's entry in its place.
void Insert(const Way& way, host::Reply& list) {
  std::vector<Item> items;
  const Bytes old = list.bytes;
  SplitItems(std::span(old).subspan(20), items);
  const auto at = items.begin() + 2 * place;
  const auto item = [](const Bytes& value) { return Item{3, value}; };
  items.insert(at, {item(way.id), item(way.name)});
  list.bytes = EnvelopeOf(items);
}

// What the guest holds after "on"; `way` null: without the misfit.
Guest Run(const std::filesystem::path& root, const Way* way) {
  std::filesystem::remove_all(root);
  platform::SetGuestRoot(root);
  platform::ResetRegistry();
  host::PrepareGuest();
  host::Catalogue catalogue;
  for (std::size_t i = 0; i < others; ++i) catalogue.Add(Other(i));

  host::Session session(host::DefaultModule(), std::chrono::seconds(60));
  session.Share(catalogue);
  bool reached = way == nullptr;
  const std::string before = Other(place - 1).bundleId;  // the application that is asked for right before
  session.Bend([&](const host::Question& question, host::Reply& reply) {
    const auto code = static_cast<Kind>(question.code);
    if (!way) return;
    if (code == Kind::List) return Insert(*way, reply);
    const bool own = question.argument == Text(way->id);
    if (own) {
      reached = true;
      reply.bytes = EnvelopeOf(code == Kind::Icons ? GoodIcons() : GoodDetails());
      const auto& bend = code == Kind::Icons ? way->icons : way->details;
      if (bend) bend(reply);
    }
    // The next request is the misfit's for icons, or for details.
    const bool next = code == Kind::Details ? question.argument == before && way->failing == Kind::Icons
                                            : own && way->failing == Kind::Details;
    if (next) session.gate().FailNext({.request = host::sendCommand, .systemError = ERROR_GEN_FAILURE});
    if (next && code == Kind::Details) reached = true;
  });
  session.Start();
  session.On();
  session.Stop();
  if (!reached && !way->unnamed) throw std::runtime_error("the misfit was never asked for");
  if (!platform::Census().empty()) throw std::runtime_error("the module left handles open");
  return Hold(root);
}

// A new entry is somebody else's matter when it is a value of a key that is there without the misfit, or lies
// below a key of another application.
bool TouchesOthers(const Guest& without, const std::string& path) {
  const std::size_t keyEnd = path.find(']');
  if (!path.starts_with('[')) return false;  // files lie side by side
  if (keyEnd + 1 < path.size() && without.contains(path.substr(0, keyEnd + 1))) return true;
  std::string key = path.substr(0, keyEnd);
  while (!without.contains(key + "]")) key.resize(key.rfind('\\'));
  return std::ranges::any_of(ownMarks, [&](const char* mark) { return key.find(mark) != std::string::npos; });
}

void FailDifferences(const Guest& without, const Guest& with, Report& report) {
  const auto tell = [&](const char* how, const std::string& path) { report.Fail(how + path.substr(0, 300)); };
  for (const auto& [path, content] : without) {
    const auto found = with.find(path);
    if (found == with.end()) tell("missing: ", path);
    if (found != with.end() && found->second != content) tell("changed: ", path);
  }
  for (const auto& [path, content] : with) {
    const bool own = without.contains(path) || path.find("isfit") != std::string::npos;
    if (!own && TouchesOthers(without, path)) tell("new: ", path);
  }
}

}  // namespace

Tally TryMisfits(const Options& options) {
  return RunCrew(options.jobs, [&](std::size_t job, Report& report) {
    const std::filesystem::path guest = options.folder / std::to_string(job);
    report.Trial("no misfit");
    const Guest without = Run(guest, nullptr);
    std::size_t number = 0;
    for (const Way& way : AllWays()) {
      if (++number % options.every != 0 || number / options.every % options.jobs != job) continue;
      report.Trial("misfit \"" + way.what + "\"");
      const Guest with = Run(guest, &way);
      FailDifferences(without, with, report);
      report.Count("ways to be wrong");
      if (with.size() == without.size()) report.Count("ways that leave no trace");
      report.Count("applications compared", others);
      report.Count("files and registry entries compared", without.size());
    }
  });
}

}  // namespace trials
