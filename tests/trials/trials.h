// The kinds of trials. Each runs in child processes (crew.h) on guests below `folder`, and returns what it
// counted.
#pragma once

#include <cstdint>
#include <filesystem>

#include "host/catalogue.h"
#include "trials/crew.h"

namespace trials {

struct Options {
  host::Catalogue catalogue;
  std::filesystem::path folder;  // scratch, removed at the end
  std::size_t jobs = 1;
  std::size_t every = 1;  // 1: all trials
  std::uint32_t seed = 1;

  // Of numbered trials: is this one for the job?
  bool IsFor(std::size_t job, std::size_t number) const {
    return number % every == 0 && number / every % jobs == job;
  }
};

using Trials = Tally(const Options& options);
Trials TryFaults, TryAllocations, TryDeaths, TryMutations, TryWalk, TryLog, TryGuests;

}  // namespace trials
