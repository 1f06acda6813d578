// The commands that look at a guest and change nothing in it.
#include <iostream>

#include "guest/export.h"
#include "guest/places.h"
#include "guest/text.h"
#include "guest/tree.h"
#include "host/commands.h"
#include "host/judge.h"
#include "host/pictures.h"
#include "host/report.h"
#include "host/system.h"

namespace host {
namespace {

void OpenGuest(const Options& options) {
  OpenGuest(PathOf(options.guest), GuestUse::Look);
}

// The catalogue that is named, or else the one that the guest was played with last.
Catalogue CatalogueOf(const Options& options) {
  if (!options.catalogue.empty()) return Catalogue::Load(PathOf(options.catalogue));
  const std::filesystem::path kept = GuestCatalogue();
  if (exists(kept)) return Catalogue::Load(kept);
  if (options.off) return {};
  throw CLI::RequiredError("--catalogue");
}

int Verify(const Options& options) {
  OpenGuest(options);
  const std::vector<Finding> findings = Judge(TakeSnapshot(), CatalogueOf(options), !options.off);
  options.asJson ? PrintFindingsAsJson(std::cout, findings) : PrintFindings(std::cout, findings);
  return findings.size() > (options.strict ? 0 : CountKept(findings)) ? 1 : 0;
}

int Export(const Options& options) {
  if (options.reg.empty() && options.json.empty()) throw CLI::RequiredError("--reg or --json");
  OpenGuest(options);
  if (!options.reg.empty()) WriteFileWhole(PathOf(options.reg), RegistryAsReg());
  if (!options.json.empty()) WriteFileWhole(PathOf(options.json), GuestAsJson());
  return 0;
}

int WriteReport(const Options& options) {
  OpenGuest(options);
  const std::filesystem::path kept = options.catalogue.empty() ? GuestCatalogue() : PathOf(options.catalogue);
  Report report;
  const bool isPlain = options.catalogue.empty() && !exists(kept);
  report.AddStep("The guest as it is", TakeSnapshot(), isPlain ? Catalogue() : Catalogue::Load(kept));
  report.Write(PathOf(options.report));
  return 0;
}

int ExportIcons(const Options& options) {
  OpenGuest(options);
  const std::vector<LauncherIcon> icons = ReadLauncherFile(PathOfLauncher(options.application)).icons;
  if (icons.empty()) {
    std::vector<std::string> names;
    for (const auto& [path, launcher] : TakeSnapshot().launchers) names.push_back(launcher.name);
    throw std::runtime_error(options.application + ": no launcher with icons" +
                             DidYouMean(options.application, names));
  }
  const std::filesystem::path folder = PathOf(options.png);
  create_directories(folder);
  for (const LauncherIcon& icon : icons) {
    const std::filesystem::path file =
        folder / (PathOf(options.application + "-" + std::to_string(icon.size()) + ".png"));
    WriteFileWhole(file, PngOf(icon));
    std::cout << PathText(file) << "\n";
  }
  return 0;
}

int Diff(const Options& options) {
  OpenGuest(options);
  const Snapshot before = TakeSnapshot();
  OpenGuest(PathOf(options.other), GuestUse::Look);
  const bool differ = PrintDifference(std::cout, before, TakeSnapshot());
  if (!differ) std::cout << "no difference\n";
  return differ ? 1 : 0;
}

}  // namespace

void CommandLine::AddGuestCommands() {
  CLI::App& verify = Add("verify", "Judge a guest by what a catalogue asks for", Verify);
  verify.add_flag("--off", options_.off, "Sharing is off: nothing but the documented residue may be there");
  verify.add_flag("--strict", options_.strict, "What is kept on purpose is a difference, too");
  verify.add_flag("--json", options_.asJson, "The findings for programs");

  CLI::App& exported = Add("export", "Write what a guest holds for other programs", Export);
  exported.add_option("--reg", options_.reg, "File for a registry editor to import");
  exported.add_option("--json", options_.json, "File for files, launchers and registry as JSON");

  CLI::App& report = Add("report", "Write a guest as a page to look at", WriteReport);
  report.add_option("page", options_.report, "HTML file")->required();

  CLI::App& icons = Add("icons", "Write the icons that a launcher carries", ExportIcons);
  icons.add_option("application", options_.application, "The application's name")->required();
  icons.add_option("--png", options_.png, "Folder for the PNG files")->required();

  for (CLI::App* command : {&verify, &report}) AddCatalogue(*command, false);
  for (CLI::App* command : {&verify, &exported, &report, &icons}) AddGuest(*command);

  CLI::App& diff = Add("diff", "Say in what the second guest differs from the first", Diff);
  diff.add_option("guest1", options_.guest, "A guest's folder")->required();
  diff.add_option("guest2", options_.other, "Another's")->required();
}

}  // namespace host
