// velomira-trials: trials of what must hold whatever fails. Each subcommand prints its figures and fails
// when a single trial did.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <iostream>
#include <thread>

#include "trials/trials.h"

namespace {

using namespace trials;

constexpr struct {
  const char *name, *what;
  Trials* run;
} kinds[] = {
    {"faults", "Every platform call fails, once and from then on", TryFaults},
    {"allocations", "Every allocation of the module fails once", TryAllocations},
    {"deaths", "The process dies at every platform call", TryDeaths},
    {"mutations", "Every changed byte and every truncation of a reply", TryMutations},
    {"walk", "Random walks through starts, stops, commands and catalogues", TryWalk},
    {"log", "Many processes write one log, which is taken away meanwhile", TryLog},
    {"guests", "Odd guests, and odd applications among a hundred", TryGuests},
};

int Main(int argc, char** argv) {
  CLI::App app{"Tries what must hold whatever fails."};
  app.require_subcommand(1)->fallthrough();
  std::string catalogue;
  Options options;
  options.jobs = std::max(1u, std::thread::hardware_concurrency());
  app.add_option("--catalogue", catalogue, "Folder of a catalogue")->required();
  app.add_option("--jobs", options.jobs, "Processes at a time")->capture_default_str();
  app.add_option("--every", options.every, "Only each N-th trial, for a look")->capture_default_str();
  app.add_option("--seed", options.seed, "Of random trials")->capture_default_str();
  for (const auto& kind : kinds) app.add_subcommand(kind.name, kind.what)->fallthrough();
  CLI11_PARSE(app, argc, argv);

  options.catalogue = host::Catalogue::Load(catalogue);
  options.folder = std::filesystem::temp_directory_path() / ("velomira-trials-" + std::to_string(getpid()));
  const auto start = std::chrono::steady_clock::now();
  Tally tally;
  for (const auto& kind : kinds) {
    if (!app.got_subcommand(kind.name)) continue;
    tally = kind.run(options);
    std::cout << kind.what << ":\n";
  }
  std::filesystem::remove_all(options.folder);
  const auto taken = std::chrono::steady_clock::now() - start;
  for (const auto& [figure, number] : tally) std::cout << "  " << number << " " << figure << "\n";
  std::cout << "  " << std::chrono::duration_cast<std::chrono::seconds>(taken).count() << " s\n";
  return tally["failures"] == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::exception& failure) {
    std::cerr << "velomira-trials: " << failure.what() << std::endl;
    return 1;
  }
}
