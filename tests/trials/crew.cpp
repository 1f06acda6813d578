// One pipe for all children: a message is a line shorter than PIPE_BUF, which arrives whole.
#include "trials/crew.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace trials {
namespace {

constexpr unsigned trialLimit = 240;  // seconds
constexpr std::uint64_t shownFailures = 40;

// Runs in the child and does not return. It ends as a program does, for a sanitizer to say what has leaked.
[[noreturn]] void Work(std::size_t job, int pipe, const std::function<void(std::size_t, Report&)>& work) {
  Report report(pipe, job);
  int status = 0;
  try {
    work(job, report);
  } catch (const std::exception& failure) {
    report.Fail(failure.what());
    status = 1;
  }
  std::exit(status);
}

// One line of a child.
void Hear(const std::string& line, std::vector<std::string>& trials, Tally& tally) {
  std::istringstream in(line);
  std::size_t job = 0;
  std::uint64_t number = 0;
  char kind = 0;
  std::string text;
  std::getline(in >> job >> kind >> number >> std::ws, text);
  if (kind == 'T') trials.at(job) = text;
  if (kind == 'C') tally.figures[text] += number;
  if (kind == 'F' && ++tally.failures <= shownFailures) std::cerr << "FAILED " << text << "\n";
}

}  // namespace

void Report::Send(char kind, std::uint64_t number, std::string text) const {
  std::replace(text.begin(), text.end(), '\n', ';');
  std::string line = std::to_string(job_) + " " + kind + " " + std::to_string(number) + " " + text;
  line.resize(std::min<std::size_t>(line.size(), PIPE_BUF - 1));
  line += '\n';
  if (write(pipe_, line.data(), line.size()) != static_cast<ssize_t>(line.size())) std::abort();
}

void Report::Trial(const std::string& name) {
  trial_ = name;
  Send('T', 0, name);
  alarm(trialLimit);
}

void Report::Try(const std::string& name, const std::function<void()>& trial) {
  Trial(name);
  try {
    trial();
  } catch (const std::exception& failure) {
    Fail(failure.what());
  }
}

Tally RunCrew(std::size_t jobs, const std::function<void(std::size_t, Report&)>& work, Tally tally) {
  int pipes[2];
  if (pipe(pipes) != 0) throw std::runtime_error("no pipe for the children");
  std::vector<pid_t> processes(jobs);
  for (std::size_t job = 0; job < jobs; ++job) {
    std::cout << std::flush;
    processes[job] = fork();
    if (processes[job] < 0) throw std::runtime_error("no process for a child");
    if (processes[job] == 0) {
      close(pipes[0]);
      Work(job, pipes[1], work);
    }
  }
  close(pipes[1]);

  std::vector<std::string> trials(jobs);
  std::ifstream messages("/dev/fd/" + std::to_string(pipes[0]));
  for (std::string line; std::getline(messages, line);) Hear(line, trials, tally);
  close(pipes[0]);
  for (std::size_t job = 0; job < jobs; ++job) {
    int status = 0;
    waitpid(processes[job], &status, 0);
    if (status == 0) continue;
    ++tally.failures;
    std::cerr << "FAILED " << trials[job] << ": the process "
              << (WIFSIGNALED(status) ? strsignal(WTERMSIG(status)) : "ended with a failure") << "\n";
  }
  return tally;
}

}  // namespace trials
