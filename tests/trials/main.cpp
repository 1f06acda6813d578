// velomira-trials: trials of what must hold whatever fails. Each subcommand prints its figures and fails
// when a single trial did.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>

#include "trials/trials.h"

namespace {

using namespace trials;

struct Kind {
  const char *name, *what;
  Trials* run;
};
constexpr Kind kinds[] = {
    {"faults", "Every platform call fails, once and from then on", TryFaults},
    {"allocations", "Every allocation of the module fails once", TryAllocations},
    {"deaths", "The process dies at every platform call", TryDeaths},
    {"mutations", "Every changed byte and every truncation of a reply", TryMutations},
    {"catalogues", "Random catalogues over a guest full of foreign entries", TryCatalogues},
    {"walk", "Starts, stops, commands and announcements at random", TryWalk},
    {"log", "Many processes write one log, which is taken away meanwhile", TryLog},
    {"guests", "Odd guests, and odd applications among a hundred", TryGuests},
};

// The number of failures.
std::uint64_t Run(const Kind& kind, const Options& options) {
  const auto start = std::chrono::steady_clock::now();
  const Tally tally = kind.run(options);
  const auto taken = std::chrono::steady_clock::now() - start;
  std::cout << kind.what << ":\n";
  for (const auto& [figure, number] : tally.figures) std::cout << "  " << number << " " << figure << "\n";
  std::cout << "  " << tally.failures << " failures, "
            << std::chrono::duration_cast<std::chrono::seconds>(taken).count() << " s" << std::endl;
  return tally.failures;
}

int Main(int argc, char** argv) {
  CLI::App app{"Tries what must hold whatever fails."};
  app.require_subcommand(1);
  std::string catalogue;
  Options options;
  options.jobs = std::max(1u, std::thread::hardware_concurrency());
  for (const Kind& kind : kinds) {
    CLI::App& command = *app.add_subcommand(kind.name, kind.what);
    command.add_option("--catalogue", catalogue, "Folder of a catalogue")->required();
    command.add_option("--jobs", options.jobs, "Processes at a time")->capture_default_str();
    command.add_option("--every", options.every, "Only each N-th trial, for a look")->capture_default_str();
    command.add_option("--seed", options.seed, "Of random trials")->capture_default_str();
  }
  CLI11_PARSE(app, argc, argv);

  options.catalogue = host::Catalogue::Load(catalogue);
  options.folder = std::filesystem::temp_directory_path() / ("velomira-trials-" + std::to_string(getpid()));
  std::uint64_t failures = 0;
  for (const Kind& kind : kinds) {
    if (app.got_subcommand(kind.name)) failures += Run(kind, options);
  }
  std::filesystem::remove_all(options.folder);
  return failures == 0 ? 0 : 1;
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
