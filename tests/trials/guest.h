// A guest with the module in it, and a host that answers what it asks. Whatever fails may fail here: a worker
// that has ended is an answer like others. One guest a process at a time; native build only.
#pragma once

#include <array>
#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "guest/guest_view.h"
#include "host/driver/gate.h"
#include "host/replies.h"
#include "host/system.h"
#include "trials/exchanges.h"

namespace trials {

using Lines = std::vector<std::string>;
Lines Split(const std::string& text, const std::string& separator = "|");

// All that a guest keeps between commands.
struct GuestState {
  std::string registry;
  std::filesystem::path files;  // a copy of drive C, beside it
};
GuestState SaveGuestState();
void RestoreGuestState(const GuestState& state);

// Everything that the guest holds where the module has no business: all registry keys and files but those of
// a host::Snapshot.
host::Snapshot Elsewhere();

// Of paths in a snapshot, values among them.
bool IsAtOrBelow(const std::string& path, const std::string& above);

inline std::string LauncherOf(const std::string& application) {
  return host::LauncherFolder() + "\\" + application + " (Mac).exe";
}
inline std::string ShortcutOf(const std::string& application) {
  return host::ShortcutFolder() + "\\" + application + " (Mac).lnk";
}

// Throws std::runtime_error with the first few of the lines when there are any.
void RequireNone(const std::string& when, const Lines& wrong);

class Guest {
 public:
  // Makes `driveC` an empty guest that has what the installer leaves, and loads the module.
  explicit Guest(const std::filesystem::path& driveC);
  ~Guest();
  Guest(const Guest&) = delete;
  Guest& operator=(const Guest&) = delete;

  // On the module's thread: answers a question, which came in this envelope.
  using Answer = std::function<host::Reply(const host::Question&, std::span<const std::byte> envelope)>;
  void Serve(Answer answer);
  void Share(const host::Catalogue& catalogue);  // the caller's, while shared
  std::uint64_t asked(std::uint32_t code) const { return asked_[code % asked_.size()]; }

  bool Start();    // StartTool returned 0; the worker may have ended all the same
  void StartUp();  // returns when the worker has announced itself and waits; throws when it never does
  // False: StopTool did not return until the worker was ended in another way.
  bool Stop();
  // Waits until the worker rests: true when it has announced itself and waits for a command, false when it
  // makes no call any more, because it has ended or waits for its stop alone.
  bool Settle();
  // Sends the command and waits until it is over; a worker that does not take it is stopped and started,
  // once.
  void Run(const host::Bytes& command);
  void On(const host::Catalogue& catalogue);  // throws when the command is not carried out even so
  void Off() { Run(host::SharingCommand(false)); }

  // The same for a worker that must take its command and go on.
  void CarryOut(const host::Bytes& command);
  void AwaitRest();
  // Nothing may be open after the stop, and the module must have kept to the gate's contract.
  void StopCleanly();
  // What is open although the module does not run, and what it has done to the gate.
  Lines LeftOpen();

  host::Gate& gate() { return *gate_; }
  host::Module& module() { return *module_; }

 private:
  std::unique_ptr<host::Gate> gate_;
  std::unique_ptr<host::Module> module_;
  std::array<std::atomic<std::uint64_t>, 256> asked_{};  // by code
  std::uint64_t announcedBefore_ = 0;                    // the last start
};

// The catalogue after a change of every kind: its first application renamed, its second gone, a new one come.
host::Catalogue ChangedCatalogue(const host::Catalogue& catalogue);

}  // namespace trials
