// velomira-trials: trials of what must hold whatever fails. Each subcommand prints its figures and fails
// when a single trial did.
#include <CLI/CLI.hpp>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>

#include "host/catalogue.h"
#include "trials/crew.h"
#include "trials/trials.h"

namespace {

void Print(const std::string& title, const trials::Tally& tally, double seconds) {
  std::cout << title << ":\n";
  for (const auto& [figure, number] : tally.figures) std::cout << "  " << number << " " << figure << "\n";
  std::cout << "  " << tally.failures << " failures, " << static_cast<int>(seconds) << " s" << std::endl;
}

int Run(int argc, char** argv) {
  CLI::App app{"Tries what must hold whatever fails."};
  app.require_subcommand(1);
  std::string catalogue;
  trials::Options options;
  options.jobs = std::max(1u, std::thread::hardware_concurrency());
  for (const trials::TrialKind& kind : trials::trialKinds) {
    CLI::App& command = *app.add_subcommand(kind.name, kind.what);
    command.add_option("--catalogue", catalogue, "Folder with catalogue.json and its PNG icons")->required();
    command.add_option("--jobs", options.jobs, "Processes at a time")->capture_default_str();
    command.add_option("--every", options.every, "Only each N-th trial, for a quick look")
        ->capture_default_str();
    command.add_option("--seed", options.seed, "Where random trials begin")->capture_default_str();
  }
  CLI11_PARSE(app, argc, argv);

  options.catalogue = host::Catalogue::Load(catalogue);
  options.folder = std::filesystem::temp_directory_path() / ("velomira-trials-" + std::to_string(getpid()));
  std::uint64_t failures = 0;
  for (const trials::TrialKind& kind : trials::trialKinds) {
    if (!app.get_subcommand(kind.name)->parsed()) continue;
    const auto start = std::chrono::steady_clock::now();
    const trials::Tally tally = kind.run(options);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    Print(kind.what, tally, taken.count());
    failures += tally.failures;
  }
  std::filesystem::remove_all(options.folder);
  return failures == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& failure) {
    std::cerr << "velomira-trials: " << failure.what() << std::endl;
    return 1;
  }
}
