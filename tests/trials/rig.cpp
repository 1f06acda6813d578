// The rig over the native layer: what a worker is doing is told by its receive and by the calls that pass the
// layer's gate.
#include "trials/rig.h"

#include <dlfcn.h>
#include <platform/control.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>
#include <utility>

#include "host/prepare.h"

namespace trials {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr auto look = 5ms;       // between two looks at the worker
constexpr int quietLooks = 20;   // without a call of the layer until a worker counts as resting
constexpr int startLooks = 100;  // of this kind, until a worker counts as lost
constexpr auto patience = 3s;    // for a stop

std::size_t CallsSoFar() {
  std::size_t calls = 0;
  for (const auto& [name, count] : platform::CallCounts()) calls += count;
  return calls;
}

}  // namespace

GuestState SaveGuestState() {
  GuestState state{platform::SaveRegistry(), {}};
  const fs::path root = platform::GuestRoot();
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const std::string name = entry.path().lexically_relative(root).generic_string();
    if (entry.is_directory()) {
      state.files[name + "/"];
    } else {
      std::ifstream file(entry.path(), std::ios::binary);
      state.files[name] = {std::istreambuf_iterator<char>(file), {}};
    }
  }
  return state;
}

void RestoreGuestState(const GuestState& state) {
  const fs::path root = platform::GuestRoot();
  for (const auto& entry : fs::directory_iterator(root)) fs::remove_all(entry);
  for (const auto& [name, bytes] : state.files) {
    if (name.ends_with('/')) {
      fs::create_directories(root / name);
    } else {
      std::ofstream file(root / name, std::ios::binary);
      file << bytes << std::flush;
      if (!file) throw std::runtime_error(name + " cannot be restored");
    }
  }
  platform::LoadRegistry(state.registry);
}

Rig::Rig(const fs::path& driveC) {
  fs::remove_all(driveC);
  platform::SetGuestRoot(driveC);
  platform::ResetRegistry();
  host::PrepareGuest();
  gate_ = host::CreateGate();
  gate_->Serve([this](std::span<const std::byte> envelope) { return Answer(envelope); });
  module_ = host::LoadModule(host::DefaultModule());
  // What the module keeps until the process ends, the log's file, is to have its owner until then.
  if (!dlopen(host::DefaultModule().c_str(), RTLD_NOW | RTLD_NODELETE)) throw std::runtime_error(dlerror());
}

Rig::~Rig() {
  module_->Stop();
}

host::Reply Rig::Answer(std::span<const std::byte> envelope) {
  const host::Question question = host::ReadQuestion(envelope);
  if (question.code == 102) ++lists_;
  if (question.code == 100) ++announcements_;
  static const host::Catalogue nothing;
  const host::Catalogue* shared = catalogue_;
  return host::AnswerCommand(shared ? *shared : nothing, envelope);
}

bool Rig::Start() {
  announcementsBefore_ = announcements_;
  return module_->Start() == 0;
}

void Rig::StartUp() {
  if (!Start()) throw std::runtime_error("the module does not start");
  for (int i = 0; i < startLooks; ++i) {
    if (Settle()) return;
  }
  throw std::runtime_error("the worker takes no command after a start");
}

bool Rig::Stop() {
  std::atomic<bool> returned = false;
  std::jthread stopper([&] {
    module_->Stop();
    returned = true;
  });
  const auto limit = std::chrono::steady_clock::now() + patience;
  while (!returned && std::chrono::steady_clock::now() < limit) std::this_thread::sleep_for(100us);
  if (returned) return true;
  // Its message was lost: a receive that fails ends the worker, and with it the wait.
  gate_->FailNext({.systemError = ERROR_GEN_FAILURE});
  gate_->Push(host::AnnounceCommand());
  return false;
}

bool Rig::Settle() {
  std::size_t before = CallsSoFar();
  for (int quiet = 0; quiet < quietLooks; ++quiet) {
    if (gate_->WaitIdle(look)) {
      if (announcements_ > announcementsBefore_) return true;
      std::this_thread::sleep_for(look);
    }
    const std::size_t now = CallsSoFar();
    if (now != std::exchange(before, now)) quiet = 0;
  }
  return false;
}

void Rig::Run(const host::Bytes& command) {
  gate_->Push(command);
  if (Settle()) return;
  Stop();
  StartUp();
}

void Rig::On(const host::Catalogue& catalogue) {
  Share(&catalogue);
  const std::uint64_t before = lists_;
  Run(host::SharingCommand(true));
  // A worker that was about to end took the first one with it.
  if (lists_ == before) Run(host::SharingCommand(true));
  if (lists_ == before) throw std::runtime_error("\"on\" was not carried out");
}

host::Catalogue ChangedCatalogue(const host::Catalogue& catalogue) {
  const auto& apps = catalogue.applications();
  host::Catalogue changed = catalogue;
  host::Application added = apps.at(2);
  added.bundleId = "example.newcomer";
  added.name = "Newcomer";
  changed.Rename(apps.at(0).name, apps.at(0).name + " Deluxe");
  changed.Remove(apps.at(1).name);
  changed.Add(std::move(added));
  return changed;
}

}  // namespace trials
