// Source places out of failure texts.
#include "support/raised.h"

#include <regex>

std::string WithoutPlaces(const std::string& what) {
  static const std::regex place(R"([^ :]*[/\\]([a-z0-9_]+)\.(cpp|h):[0-9]+: )");
  return std::regex_replace(what, place, "$1: ");
}
