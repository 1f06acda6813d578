// Random choices that a seed and a trial's number repeat.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <random>
#include <string>

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
  std::string Spelt(std::string text) {
    if (!Chance(25)) return text;
    for (char& c : text) {
      if (((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) && Chance(50)) c ^= 0x20;
    }
    return text;
  }

 private:
  std::seed_seq both_;
  std::mt19937 random_;
};

}  // namespace trials
