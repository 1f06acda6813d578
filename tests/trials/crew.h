// Trials in child processes, so that a crash, a deadlock or a sanitizer's report costs one trial's name and
// not the run. The children report through a pipe; the parent sums up.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace trials {

// A child's end. Everything goes to the parent at once, so nothing is lost when the child dies.
class Report {
 public:
  Report(int pipe, std::size_t job) : pipe_(pipe), job_(job) {}
  // A trial begins; it is named when the child dies in it or does not end it within four minutes.
  void Trial(const std::string& name);
  void Count(const std::string& figure, std::uint64_t number = 1) { Send('C', number, figure); }
  void Fail(const std::string& what) { Send('F', 0, trial_ + ": " + what); }  // of the last trial
  // A whole trial: what it throws is its failure, and the next one can follow.
  void Try(const std::string& name, const std::function<void()>& trial);

 private:
  void Send(char kind, std::uint64_t number, std::string text) const;

  int pipe_;
  std::size_t job_;
  std::string trial_;
};

struct Tally {
  std::map<std::string, std::uint64_t> figures;
  std::uint64_t failures = 0;  // the first ones have been printed on standard error
};

// Calls `work` in `jobs` processes, with the number of each (from 0) and its report, waits for all, and adds
// to `tally`. A child that ends before its work returns, for whatever reason, is a failure. The caller must
// have one thread only.
Tally RunCrew(std::size_t jobs, const std::function<void(std::size_t job, Report& report)>& work,
              Tally tally = {});

}  // namespace trials
