// Single questions of the module's own code to a host that answers as badly as it likes, in this process: the
// requests go through the whole channel to the gate. After each, the guest must have taken over exactly what
// the reply holds, and nothing may be open.
#pragma once

#include <filesystem>
#include <memory>

#include "host/driver/gate.h"
#include "trials/replies.h"

namespace trials {

// A file of drive C, "C:\...", as the machine that plays the guest has it.
std::filesystem::path HostFile(const std::string& guestPath);
void PutFile(const std::string& guestPath, const std::string& bytes);  // with its parents

class Exchanges {
 public:
  // `guest` becomes drive C of the guest; a launcher to write icons into is put there.
  explicit Exchanges(const std::filesystem::path& guest);
  Exchanges(const Exchanges&) = delete;
  Exchanges& operator=(const Exchanges&) = delete;

  // Empty, or what was not as it must be. With a `systemError` the control call fails.
  std::string Try(Kind kind, const host::Reply& reply, std::uint32_t systemError = 0);
  // The message that the last one raised, empty for a reply that was taken whole.
  const std::string& raised() const { return raised_; }

 private:
  std::unique_ptr<host::Gate> gate_;
  host::Reply reply_;
  host::Bytes request_;
  std::string raised_;
};

}  // namespace trials
