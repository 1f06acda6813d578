// Random choices that a seed and a trial's number repeat, from single ones to catalogues and guests.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "host/catalogue.h"

namespace trials {

class Dice {
 public:
  Dice(std::uint32_t seed, std::size_t trial)
      : both_{seed, static_cast<std::uint32_t>(trial)}, random_(both_) {}
  std::size_t Below(std::size_t limit) { return random_() % limit; }
  bool Chance(std::size_t percent) { return Below(100) < percent; }
  template <class List>
  const auto& Of(const List& list) {
    return list[Below(std::size(list))];
  }
  template <class List>
  void Shuffle(List& list) {
    std::shuffle(list.begin(), list.end(), random_);
  }
  // The text with the case of its ASCII letters changed at random, now and then.
  std::string Spelt(std::string text);

 private:
  std::seed_seq both_;
  std::mt19937 random_;
};

// Up to 20 applications. Names and identifiers come from two pools, so that those of
// the next catalogue are partly the same, spelt otherwise, or another application's.
host::Catalogue RandomCatalogue(Dice& dice);

// Fills the guest with entries and files of other programs, for this user and for the whole machine, that
// have much to do with types, schemes and names of such catalogues.
void AddForeignEntries(Dice& dice);

}  // namespace trials
