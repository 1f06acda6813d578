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
  explicit Report(int pipe) : pipe_(pipe) {}
  // A trial begins; it is named when the child dies in it or does not end it within a minute.
  void Trial(const std::string& name);
  void Count(const std::string& figure, std::uint64_t number = 1);
  void Fail(const std::string& what);  // of the trial that has begun last; it is over then

 private:
  void Send(char kind, std::string text) const;

  int pipe_;
  std::string trial_;
};

struct Tally {
  std::map<std::string, std::uint64_t> figures;
  std::uint64_t failures = 0;  // the first ones have been printed on standard error
};

// Calls `work` in `jobs` processes, with the number of each (from 0) and its report, and waits for all. A
// child that ends before its work returns, for whatever reason, is a failure. The caller must have one thread
// only.
Tally RunCrew(std::size_t jobs, const std::function<void(std::size_t job, Report& report)>& work);

}  // namespace trials
