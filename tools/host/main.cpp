// velomira-host: plays the program that loads the module and the host behind the tool gate.
#include <CLI/CLI.hpp>
#include <cstdlib>
#include <iostream>

#include "host/catalogue.h"
#include "host/prepare.h"
#include "host/shell.h"
#include "host/story.h"
#include "host/system.h"
#include "host/text.h"
#include "host/verify.h"

namespace {

struct Options {
  std::string catalogue, guest, module;
  double seconds = 30;
  bool keepOn = false;
  bool off = false;
};

void AddCatalogue(CLI::App& command, Options& options) {
  command.add_option("--catalogue", options.catalogue, "Folder with catalogue.json and its PNG icons")
      ->required();
}

void AddGuest(CLI::App& command, Options& options) {
  command.add_option("--guest", options.guest,
                     "Folder that is to be the guest's drive C (native build only)");
}

void AddModule(CLI::App& command, Options& options) {
  command.add_option("--module", options.module, "The module's library (default: the one beside this tool)");
  command.add_option("--timeout", options.seconds, "Limit for each step, in seconds")
      ->check(CLI::Range(0.1, 3600.0))
      ->capture_default_str();
}

host::SessionOptions SessionOf(const Options& options) {
  return {options.module.empty() ? host::DefaultModule()
                                 : std::filesystem::absolute(host::PathOf(options.module)),
          std::chrono::milliseconds(static_cast<std::int64_t>(options.seconds * 1000))};
}

void SaveGuest() {
  const std::filesystem::path saved = host::SaveGuest();
  if (!saved.empty()) std::cout << "\nThe guest's registry is in " << host::PathText(saved) << "\n";
}

// Another pass over the guest as it is would change nothing: so it is what it must be.
int Verify(const host::Catalogue& catalogue, bool off) {
  const host::Snapshot guest = host::TakeSnapshot();
  host::GuestModel model(guest, host::LookAround());
  off ? model.Off() : model.On(catalogue);
  const std::vector<std::string> differences = model.Compare(guest);
  for (const std::string& difference : differences) std::cout << difference << "\n";
  if (differences.empty()) std::cout << "no difference\n";
  return differences.empty() ? 0 : 1;
}

int Run(int argc, char** argv) {
  CLI::App app{"Plays the host: shares a catalogue of applications with the guest module."};
  app.require_subcommand(1);
  Options options;

  CLI::App& run = *app.add_subcommand("run", "Tell the whole story: on, a changed catalogue, on, off");
  AddCatalogue(run, options);
  AddGuest(run, options);
  AddModule(run, options);
  run.add_flag("--keep-on", options.keepOn, "Leave sharing on at the end");
  CLI::App& shell = *app.add_subcommand("shell", "Play the host by hand, or by a script on standard input");
  AddCatalogue(shell, options);
  AddGuest(shell, options);
  AddModule(shell, options);
  CLI::App& check = *app.add_subcommand("check", "Check a catalogue and do nothing else");
  AddCatalogue(check, options);
  CLI::App& verify = *app.add_subcommand("verify", "Compare a guest with what a catalogue asks for");
  AddCatalogue(verify, options);
  AddGuest(verify, options);
  verify.add_flag("--off", options.off, "Sharing is off: nothing but residue may be there");
  CLI11_PARSE(app, argc, argv);

  const bool interactive = host::OpenConsole();
  const std::filesystem::path folder = host::PathOf(options.catalogue);
  const host::Catalogue catalogue = host::Catalogue::Load(folder);
  if (check.parsed()) {
    std::cout << catalogue.applications().size() << " applications, no fault found\n";
    return 0;
  }
  host::OpenGuest(host::PathOf(options.guest));
  if (verify.parsed()) return Verify(catalogue, options.off);
  host::PrepareGuest();
  int status = 0;
  if (run.parsed()) {
    host::TellStory(catalogue, SessionOf(options), options.keepOn);
  } else {
    status = host::RunShell(catalogue, folder, SessionOf(options), interactive);
  }
  SaveGuest();
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& failure) {
    std::cout << std::flush;
    std::cerr << "velomira-host: " << failure.what() << std::endl;
    std::_Exit(1);  // the module's thread may still run and never answer
  }
}
