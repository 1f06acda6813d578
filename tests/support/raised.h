// What a piece of work raises, for comparison: "module: message", the module being the source file's name
// without path, ending and line; nested texts keep their order, "mainfo: dtool: ...". Empty when nothing is
// raised.
#pragma once

#include <exception>
#include <functional>
#include <regex>
#include <string>

inline std::string Raised(const std::function<void()>& work) {
  static const std::regex place(R"([^ :]*[/\\]([a-z0-9_]+)\.(cpp|h):[0-9]+: )");
  try {
    work();
    return {};
  } catch (const std::exception& failure) {
    return std::regex_replace(failure.what(), place, "$1: ");
  }
}
