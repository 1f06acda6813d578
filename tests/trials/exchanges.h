// Single questions of the module's own code to a host that answers as badly as it likes, in this process: the
// requests go through the whole channel to the gate. After each, the guest must have taken over exactly what
// the reply holds, nothing may be open, and the next question must be answered.
#pragma once

#include <filesystem>
#include <memory>

#include "host/gate.h"
#include "trials/expectations.h"

namespace trials {

class Exchanges {
 public:
  // `guest` becomes drive C of the guest; a launcher to write icons into is put there.
  explicit Exchanges(const std::filesystem::path& guest);
  Exchanges(const Exchanges&) = delete;
  Exchanges& operator=(const Exchanges&) = delete;

  // Empty, or what was not as it must be.
  std::string Try(Kind kind, const Misdeed& misdeed);
  // The message that the last one raised, empty for a reply that was taken whole.
  const std::string& raised() const { return raised_; }

 private:
  Taken Ask(Kind kind, const Misdeed& misdeed);
  static void AskForIcons(Taken& taken);
  std::string Check(Kind kind, const Misdeed& misdeed);

  std::filesystem::path launcher_;
  host::Bytes stub_;  // the launcher before each question
  std::unique_ptr<host::Gate> gate_;
  const Misdeed* misdeed_ = nullptr;
  host::Bytes request_;
  std::string raised_;
};

}  // namespace trials
