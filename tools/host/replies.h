// The host's answers to the guest's commands, from a catalogue. The encoding is written here once more, apart
// from the module's, so that the two check each other.
#pragma once

#include <span>

#include "host/catalogue.h"
#include "host/driver/gate.h"

namespace host {

// `result` of an answer; the guest only looks whether it is zero.
enum class Result : std::uint32_t { Done = 0, UnknownApplication = 1, BadRequest = 2, NoRoom = 3 };

// What a command asks, as far as it can be read.
struct Question {
  std::uint32_t code = 0;
  std::string argument;  // the pattern of a list request, otherwise the bundleId
  std::uint32_t room = 0;
  bool valid = false;
};
Question ReadQuestion(std::span<const std::byte> envelope);

// Answers the announcement (100), list (102), icons (103) and details (104).
Reply AnswerCommand(const Catalogue& catalogue, std::span<const std::byte> envelope);

// The envelopes that the host sends unasked.
Bytes SharingCommand(bool on);
Bytes AnnounceCommand();

}  // namespace host
