// The difference of two states that are maps: what was there before, what is there now.
#pragma once

namespace host {

// Calls `each(key, before, now)` for every key whose values differ or that only one map has, in the maps'
// order; the value that is missing is null.
template <class Map, class Each>
void ForEachDifference(const Map& before, const Map& now, Each each) {
  const auto less = before.key_comp();
  auto was = before.begin();
  auto is = now.begin();
  while (was != before.end() || is != now.end()) {
    if (is == now.end() || (was != before.end() && less(was->first, is->first))) {
      each(was->first, &was->second, nullptr);
      ++was;
    } else if (was == before.end() || less(is->first, was->first)) {
      each(is->first, nullptr, &is->second);
      ++is;
    } else {
      if (!(was->second == is->second)) each(was->first, &was->second, &is->second);
      ++was;
      ++is;
    }
  }
}

}  // namespace host
