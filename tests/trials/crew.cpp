// A report is a file of lines: a "T" and the name of a trial, or at the end a "C", a number and what it
// counts.
#include "trials/crew.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <vector>

namespace trials {
namespace {

constexpr unsigned trialLimit = 240;         // seconds
constexpr std::uint64_t shownFailures = 40;  // of a child

// Runs in the child and does not return. It ends as a program does, for a sanitizer to say what has leaked.
[[noreturn]] void Work(Report report, const std::function<void(Report&)>& work) {
  try {
    work(report);
  } catch (const std::exception& failure) {
    report.Fail(failure.what());
  }
  report.Finish();
  std::exit(0);
}

// Adds a child's figures; the name of its last trial.
std::string AddReport(const std::filesystem::path& file, Tally& tally) {
  std::ifstream in(file);
  std::string trial, text;
  for (char kind = 0; in >> kind;) {
    std::uint64_t number = 0;
    if (kind == 'C') in >> number;
    std::getline(in >> std::ws, text);
    kind == 'C' ? static_cast<void>(tally[text] += number) : trial.swap(text);
  }
  return trial;
}

}  // namespace

void Report::Trial(const std::string& name) {
  trial_ = name;
  std::replace(trial_.begin(), trial_.end(), '\n', ' ');
  out_ << "T " << trial_ << std::endl;
  alarm(trialLimit);
}

void Report::Fail(const std::string& what) {
  Count("failures");
  if (tally_["failures"] <= shownFailures) std::cerr << "FAILED " + trial_ + ": " + what + "\n";
}

void Report::Try(const std::string& name, const std::function<void()>& trial) {
  Trial(name);
  try {
    trial();
  } catch (const std::exception& failure) {
    Fail(failure.what());
  }
}

void Report::Finish() {
  for (const auto& [figure, number] : tally_) out_ << "C " << number << " " << figure << "\n";
  out_.close();
}

Tally RunCrew(const std::filesystem::path& folder, std::size_t jobs,
              const std::function<void(std::size_t, Report&)>& work) {
  std::filesystem::create_directories(folder);
  const auto fileOf = [&](std::size_t job) { return folder / ("report-" + std::to_string(job)); };
  std::cout << std::flush;
  std::vector<pid_t> processes(jobs);
  for (std::size_t job = 0; job < jobs; ++job) {
    processes[job] = fork();
    if (processes[job] < 0) throw std::runtime_error("no process for a child");
    if (processes[job] == 0) Work(Report(fileOf(job)), [&](Report& report) { work(job, report); });
  }
  Tally tally{{"failures", 0}};
  for (std::size_t job = 0; job < jobs; ++job) {
    int status = 0;
    waitpid(processes[job], &status, 0);
    const std::string trial = AddReport(fileOf(job), tally);
    if (status == 0) continue;
    ++tally["failures"];
    std::cerr << "FAILED " << trial << ": the process "
              << (WIFSIGNALED(status) ? strsignal(WTERMSIG(status)) : "ended with a failure") << "\n";
  }
  return tally;
}

}  // namespace trials
