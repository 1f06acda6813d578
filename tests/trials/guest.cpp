// What a worker is doing is told by its receive and by the calls that pass the layer's gate.
#include "trials/guest.h"

#include <dlfcn.h>
#include <platform/control.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <numeric>
#include <stdexcept>
#include <thread>
#include <utility>

#include "host/prepare.h"

namespace trials {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr auto look = 1ms;       // between two looks at the worker
constexpr int quietLooks = 100;  // without a call of the layer until a worker counts as resting
constexpr int startLooks = 100;  // of this kind, until a worker counts as lost
constexpr auto stopPatience = 3s;
constexpr auto patience = 180s;        // for a worker that must come to rest
constexpr std::size_t shownLines = 6;  // of one failure

std::size_t CallsSoFar() {
  const auto counts = platform::CallCounts();
  return std::accumulate(counts.begin(), counts.end(), std::size_t{0},
                         [](std::size_t sum, const auto& each) { return sum + each.second; });
}

}  // namespace

GuestState SaveGuestState() {
  static int number = 0;
  GuestState state{platform::SaveRegistry(), platform::GuestRoot().string() + "." + std::to_string(++number)};
  fs::remove_all(state.files);
  fs::copy(platform::GuestRoot(), state.files, fs::copy_options::recursive);
  return state;
}

void RestoreGuestState(const GuestState& state) {
  for (const auto& entry : fs::directory_iterator(platform::GuestRoot())) fs::remove_all(entry);
  fs::copy(state.files, platform::GuestRoot(), fs::copy_options::recursive);
  platform::LoadRegistry(state.registry);
}

host::Snapshot Elsewhere() {
  host::Snapshot elsewhere;
  for (const char* root : {"HKCU", "HKLM"}) host::ReadKeys(root, elsewhere.registry);
  for (const auto& entry : fs::recursive_directory_iterator(platform::GuestRoot())) {
    std::string path = "C:/" + entry.path().lexically_relative(platform::GuestRoot()).generic_string();
    std::replace(path.begin(), path.end(), '/', '\\');
    elsewhere.files[path] = host::ReadGuestFile(path).value_or("folder");
  }
  for (const std::string& ours : {host::classesKey, host::tessarineKey, host::registeredKey,
                                  host::LauncherFolder(), host::ShortcutFolder()}) {
    const auto isOurs = [&](const auto& entry) { return IsAtOrBelow(entry.first, ours); };
    std::erase_if(elsewhere.registry, isOurs);
    std::erase_if(elsewhere.files, isOurs);
  }
  return elsewhere;
}

bool IsAtOrBelow(const std::string& path, const std::string& above) {
  return host::EqualNoCase(path.substr(0, above.size()), above) &&
         (path.size() == above.size() || path[above.size()] == '\\' || path[above.size()] == host::valueMark);
}

Lines Split(const std::string& text, const std::string& separator) {
  Lines parts;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find(separator, start), text.size());
    parts.push_back(text.substr(start, end - start));
    start = end + separator.size();
  }
  return parts;
}

void RequireNone(const std::string& when, const Lines& wrong) {
  if (wrong.empty()) return;
  std::string text = when + ": " + std::to_string(wrong.size()) + " differences";
  for (std::size_t i = 0; i < std::min(shownLines, wrong.size()); ++i)
    text += "\n    " + wrong[i].substr(0, 300);
  throw std::runtime_error(text);
}

Guest::Guest(const fs::path& driveC) {
  fs::remove_all(driveC);
  platform::SetGuestRoot(driveC);
  platform::ResetRegistry();
  host::PrepareGuest();
  gate_ = host::CreateGate();
  static const host::Catalogue nothing;
  Share(nothing);
  module_ = std::make_unique<host::Module>(host::DefaultModule());
  // What the module keeps until the process ends, the log's file, is to have its owner until then.
  if (!dlopen(host::DefaultModule().c_str(), RTLD_NOW | RTLD_NODELETE)) throw std::runtime_error(dlerror());
}

Guest::~Guest() {
  module_->Stop();
}

void Guest::Serve(Answer answer) {
  gate_->Serve([this, answer = std::move(answer)](std::span<const std::byte> envelope) {
    const host::Question question = host::ReadQuestion(envelope);
    ++asked_[question.code % asked_.size()];
    return answer(question, envelope);
  });
}

void Guest::Share(const host::Catalogue& catalogue) {
  Serve([&catalogue](const host::Question&, std::span<const std::byte> envelope) {
    return host::AnswerCommand(catalogue, envelope);
  });
}

bool Guest::Start() {
  announcedBefore_ = asked(100);
  return module_->Start() == 0;
}

void Guest::StartUp() {
  if (!Start()) throw std::runtime_error("the module does not start");
  for (int i = 0; i < startLooks; ++i) {
    if (Settle()) return;
  }
  throw std::runtime_error("the worker takes no command after a start");
}

bool Guest::Stop() {
  const auto stopped = std::async(std::launch::async, [this] { module_->Stop(); });
  if (stopped.wait_for(stopPatience) == std::future_status::ready) return true;
  // Its message was lost: a receive that fails ends the worker, and with it the wait.
  gate_->FailNext({.systemError = ERROR_GEN_FAILURE});
  gate_->Push(host::AnnounceCommand());
  return false;
}

bool Guest::Settle() {
  std::size_t calls = CallsSoFar();
  for (int looks = 0; looks < quietLooks; ++looks) {
    if (gate_->WaitIdle(look)) {
      if (asked(100) > announcedBefore_) return true;
      std::this_thread::sleep_for(look);
    }
    const std::size_t now = CallsSoFar();
    if (now != std::exchange(calls, now)) looks = 0;
  }
  return false;
}

void Guest::Run(const host::Bytes& command) {
  gate_->Push(command);
  if (Settle()) return;
  Stop();
  StartUp();
}

void Guest::On(const host::Catalogue& catalogue) {
  Share(catalogue);
  const std::uint64_t before = asked(102);
  Run(host::SharingCommand(true));
  // A worker that was about to end took the first one with it.
  if (asked(102) == before) Run(host::SharingCommand(true));
  if (asked(102) == before) throw std::runtime_error("\"on\" was not carried out");
}

void Guest::CarryOut(const host::Bytes& command) {
  gate_->Push(command);
  AwaitRest();
}

void Guest::AwaitRest() {
  if (!gate_->WaitIdle(patience)) throw std::runtime_error("the guest does not come to rest");
}

void Guest::StopCleanly() {
  module_->Stop();
  RequireNone("after a stop", LeftOpen());
}

Lines Guest::LeftOpen() {
  const host::GateFacts facts = gate_->Facts();
  Lines left = facts.breaches;
  for (const auto& [kind, count] : platform::Census())
    left.push_back(std::to_string(count) + " open: " + kind);
  if (facts.opens != facts.closes) left.emplace_back("the device is open");
  return left;
}

host::Catalogue ChangedCatalogue(const host::Catalogue& catalogue) {
  const auto& apps = catalogue.applications();
  host::Catalogue changed = catalogue;
  host::Application added = apps.at(2);
  added.bundleId = added.name = "Newcomer";
  changed.Rename(apps.at(0).name, apps.at(0).name + " Deluxe");
  changed.Remove(apps.at(1).name);
  changed.Add(std::move(added));
  return changed;
}

}  // namespace trials
