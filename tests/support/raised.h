// What a piece of work raises, for comparison: "module: message", the module being the source file's name
// without path, ending and line; nested texts keep their order, "mainfo: dtool: ...". Empty when nothing is
// raised.
#pragma once

#include <exception>
#include <string>

// "/src/channel/mainfo.cpp:12: command failed" -> "mainfo: command failed"
std::string WithoutPlaces(const std::string& what);

template <class Work>
std::string Raised(Work work) {
  try {
    work();
    return {};
  } catch (const std::exception& failure) {
    return WithoutPlaces(failure.what());
  }
}
