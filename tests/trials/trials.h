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
};

Tally TryFaults(const Options& options);       // each call of the platform fails, once and from then on
Tally TryAllocations(const Options& options);  // each allocation of the module fails once
Tally TryDeaths(const Options& options);       // the process ends at each call of the platform
Tally TryMutations(const Options& options);    // every changed byte and every truncation of real replies
Tally TryMisfits(const Options& options);      // one malformed application among a hundred
Tally TryCatalogues(const Options& options);   // random catalogues over a guest full of foreign entries
Tally TryLoad(const Options& options);         // starts, stops and commands without end
Tally TryLog(const Options& options);          // the log, written by many and taken away meanwhile
Tally TryGuests(const Options& options);       // guests that refuse, lack or hold what nobody expects

struct TrialKind {
  const char* name;
  const char* what;
  Tally (*run)(const Options&);
};

inline constexpr TrialKind trialKinds[] = {
    {"faults", "Every platform call fails, once and from then on", TryFaults},
    {"allocations", "Every allocation of the module fails once", TryAllocations},
    {"deaths", "The process dies at every platform call", TryDeaths},
    {"mutations", "Every changed byte and every truncation of a reply", TryMutations},
    {"misfits", "One malformed application among a hundred", TryMisfits},
    {"catalogues", "Random catalogues leave a guest as it was", TryCatalogues},
    {"load", "Starts, stops and commands without end", TryLoad},
    {"log", "Many processes write one log", TryLog},
    {"guests", "Odd guests", TryGuests},
};

}  // namespace trials
