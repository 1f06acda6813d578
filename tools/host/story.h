// The demonstration: sharing is switched on, the catalogue changes, sharing is switched on again and off, and
// after each step the guest is compared with what it must hold, and saved.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>

#include "guest/guest_view.h"
#include "host/catalogue.h"
#include "host/conversation.h"

namespace host {

struct SessionOptions {
  std::filesystem::path module;
  std::chrono::milliseconds limit;
};

struct StoryOptions {
  bool keepOn = false;  // leaves the last "off" out, so that the guest keeps the applications
  bool trees = false;   // shows what the guest holds and what changed
  // Called after each step, with the catalogue that is shared then and with what the guest holds.
  std::function<void(const std::string& step, const Catalogue& catalogue, const Snapshot& guest)> watch{};
  Conversation::Listener listen{};  // is told what host and guest say to each other
};

// Tells the story on standard output, with any catalogue. Throws std::runtime_error where it does not go as
// it must, or when it is interrupted; the module is stopped and the guest saved then, too. Returns the
// catalogue as it was shared last.
Catalogue TellStory(const Catalogue& catalogue, const SessionOptions& session, const StoryOptions& options);

// "10 launchers, 10 shortcuts, 14 types, 8 schemes": what a catalogue brings into a guest.
std::string Summary(const Catalogue& catalogue);

}  // namespace host
