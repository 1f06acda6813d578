// The demonstration: sharing is switched on, the catalogue changes, sharing is switched on again and off, and
// after each step the guest is compared with what it must hold.
#pragma once

#include <chrono>
#include <filesystem>

#include "host/catalogue.h"

namespace host {

struct SessionOptions {
  std::filesystem::path module;
  std::chrono::milliseconds limit;
};

// Tells the story on standard output; throws std::runtime_error where it does not go as it must. `keepOn`
// leaves the last "off" out, so that the guest keeps the applications.
void TellStory(const Catalogue& catalogue, const SessionOptions& options, bool keepOn);

}  // namespace host
