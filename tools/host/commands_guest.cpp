// The commands that look at a guest and change nothing in it.
#include <fstream>
#include <iostream>
#include <memory>

#include "host/commands.h"
#include "host/export.h"
#include "host/judge.h"
#include "host/launcher_view.h"
#include "host/pictures.h"
#include "host/report.h"
#include "host/system.h"
#include "host/text.h"
#include "host/tree.h"

namespace host {
namespace {

struct LookOptions : GuestOptions {
  bool off = false, strict = false, json = false;
  std::string regFile, jsonFile, application, pngFolder, other, page;

  void OpenGuest() const { host::OpenGuest(PathOf(guest), GuestUse::Look); }
};

// The catalogue that is named, or else the one that the guest was played with last.
Catalogue CatalogueOf(const LookOptions& options) {
  if (!options.catalogue.empty()) return Catalogue::Load(PathOf(options.catalogue));
  const std::filesystem::path kept = GuestCatalogue();
  if (!kept.empty() && exists(kept)) return Catalogue::Load(kept);
  if (options.off) return {};
  throw CLI::RequiredError("--catalogue");
}

int Verify(const LookOptions& options) {
  options.OpenGuest();
  const std::vector<Finding> findings = Judge(TakeSnapshot(), CatalogueOf(options), !options.off);
  options.json ? PrintFindingsAsJson(std::cout, findings) : PrintFindings(std::cout, findings);
  return findings.size() > (options.strict ? 0 : CountKept(findings)) ? 1 : 0;
}

int Export(const LookOptions& options) {
  if (options.regFile.empty() && options.jsonFile.empty()) throw CLI::RequiredError("--reg or --json");
  options.OpenGuest();
  if (!options.regFile.empty()) WriteFileWhole(PathOf(options.regFile), RegistryAsReg());
  if (!options.jsonFile.empty()) WriteFileWhole(PathOf(options.jsonFile), GuestAsJson());
  return 0;
}

int WriteReport(const LookOptions& options) {
  options.OpenGuest();
  const std::filesystem::path kept = options.catalogue.empty() ? GuestCatalogue() : PathOf(options.catalogue);
  const bool isPlain = options.catalogue.empty() && (kept.empty() || !exists(kept));
  Report report;
  report.AddStep("The guest as it is", TakeSnapshot(), isPlain ? Catalogue() : Catalogue::Load(kept));
  report.Write(PathOf(options.page));
  return 0;
}

int ExportIcons(const LookOptions& options) {
  options.OpenGuest();
  const std::string path = LauncherFolder() + "\\" + options.application + " (Mac).exe";
  const std::vector<LauncherIcon> icons = ReadLauncherFile(path).icons;
  if (icons.empty()) throw std::runtime_error(path + ": no launcher with icons");
  const std::filesystem::path folder = PathOf(options.pngFolder);
  create_directories(folder);
  for (const LauncherIcon& icon : icons) {
    const std::filesystem::path file =
        folder / (PathOf(options.application + "-" + std::to_string(icon.size()) + ".png"));
    WriteFileWhole(file, PngOf(icon));
    std::cout << PathText(file) << "\n";
  }
  return 0;
}

int Diff(const LookOptions& options) {
  options.OpenGuest();
  const Snapshot before = TakeSnapshot();
  OpenGuest(PathOf(options.other), GuestUse::Look);
  const bool differ = PrintDifference(std::cout, before, TakeSnapshot());
  if (!differ) std::cout << "no difference\n";
  return differ ? 1 : 0;
}

}  // namespace

void AddGuestCommands(CLI::App& tool, Action& action) {
  const auto options = std::make_shared<LookOptions>();
  const auto add = [&](const char* name, const char* help, int (*run)(const LookOptions&)) -> CLI::App& {
    CLI::App& command = *tool.add_subcommand(name, help);
    command.callback([options, run, &action] { action = [options, run] { return run(*options); }; });
    return command;
  };
  CLI::App& verify = add("verify", "Judge a guest by what a catalogue asks for", Verify);
  options->AddCatalogue(verify, false);
  options->AddGuest(verify);
  verify.add_flag("--off", options->off, "Sharing is off: nothing but the documented residue may be there");
  verify.add_flag("--strict", options->strict, "What is kept on purpose is a difference, too");
  verify.add_flag("--json", options->json, "The findings for programs");

  CLI::App& exported = add("export", "Write what a guest holds for other programs", Export);
  options->AddGuest(exported);
  exported.add_option("--reg", options->regFile, "File for a registry editor to import");
  exported.add_option("--json", options->jsonFile, "File for files, launchers and registry as JSON");

  CLI::App& report = add("report", "Write a guest as a page to look at", WriteReport);
  report.add_option("page", options->page, "HTML file")->required();
  options->AddCatalogue(report, false);
  options->AddGuest(report);

  CLI::App& icons = add("icons", "Write the icons that a launcher carries", ExportIcons);
  options->AddGuest(icons);
  icons.add_option("application", options->application, "The application's name")->required();
  icons.add_option("--png", options->pngFolder, "Folder for the PNG files")->required();

  CLI::App& diff = add("diff", "Say in what the second guest differs from the first", Diff);
  diff.add_option("guest1", options->guest, "A guest's folder")->required();
  diff.add_option("guest2", options->other, "Another's")->required();
}

}  // namespace host
