// A guest with the module in it, for trials in which the module may fail: unlike a host::Session, a rig takes
// a worker that has ended for an answer. One rig a process at a time; native build only.
#pragma once

#include <atomic>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/catalogue.h"
#include "host/gate.h"
#include "host/guest_view.h"
#include "host/replies.h"
#include "host/system.h"

namespace trials {

// All that a guest keeps between commands.
struct GuestState {
  std::string registry;
  std::map<std::string, std::string> files;  // path below drive C -> bytes; folders with a "/" at their end
};
GuestState SaveGuestState();
void RestoreGuestState(const GuestState& state);

class Rig {
 public:
  // Makes `driveC` an empty guest that has what the installer leaves, and loads the module.
  explicit Rig(const std::filesystem::path& driveC);
  ~Rig();
  Rig(const Rig&) = delete;
  Rig& operator=(const Rig&) = delete;

  void Share(const host::Catalogue* catalogue) { catalogue_ = catalogue; }  // the caller's, while shared

  bool Start();    // StartTool returned 0; the worker may have ended all the same
  void StartUp();  // returns when the worker waits for a command; throws when it never does
  // False: StopTool did not return until the worker was ended in another way.
  bool Stop();
  void Send(const host::Bytes& command) { gate().Push(command); }
  // Waits until the worker rests: true when it has announced itself and waits for a command, false when it
  // makes no call any more, because it has ended or waits for its stop alone.
  bool Settle();
  // Sends the command and waits until it is over; a worker that does not take it is stopped and started,
  // once. Throws when the command is still not taken.
  void Run(const host::Bytes& command);
  void On(const host::Catalogue& catalogue);
  void Off() { Run(host::SharingCommand(false)); }

  host::Gate& gate() { return *gate_; }
  host::Module& module() { return *module_; }
  std::uint64_t listsAsked() const { return lists_; }

 private:
  host::Reply Answer(std::span<const std::byte> envelope);

  std::unique_ptr<host::Gate> gate_;
  std::unique_ptr<host::Module> module_;
  std::atomic<const host::Catalogue*> catalogue_ = nullptr;
  std::atomic<std::uint64_t> lists_ = 0, announcements_ = 0;
  std::uint64_t announcementsBefore_ = 0;  // the last start
};

// The catalogue after a change of every kind: its first application renamed, its second gone, a new one come.
host::Catalogue ChangedCatalogue(const host::Catalogue& catalogue);

}  // namespace trials
