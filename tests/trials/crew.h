// Trials in child processes, so that a crash, a deadlock or a sanitizer's report costs one trial's name and
// not the run. A child leaves its report in a file; the parent sums up.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>

namespace trials {

// Figures by name; "failures" is one of them.
using Tally = std::map<std::string, std::uint64_t>;

// A child's end.
class Report {
 public:
  explicit Report(const std::filesystem::path& file) : out_(file) {}
  // A trial begins; it is named when the child dies in it or does not end it within four minutes.
  void Trial(const std::string& name);
  void Count(const std::string& figure, std::uint64_t number = 1) { tally_[figure] += number; }
  void Fail(const std::string& what);  // of the last trial; printed on standard error
  // A whole trial: what it throws is its failure, and the next one can follow.
  void Try(const std::string& name, const std::function<void()>& trial);
  // Writes the figures, which are lost when the child dies before.
  void Finish();

 private:
  std::ofstream out_;
  std::string trial_;
  Tally tally_;
};

// Calls `work` in `jobs` processes, with the number of each (from 0) and its report in `folder`, waits for
// all, and sums up. A child that ends before its work returns, for whatever reason, is a failure. The caller
// must have one thread only.
Tally RunCrew(const std::filesystem::path& folder, std::size_t jobs,
              const std::function<void(std::size_t job, Report& report)>& work);

}  // namespace trials
