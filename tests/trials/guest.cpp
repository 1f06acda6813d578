// What a worker is doing is told by its receive and by the calls that pass the layer's gate.
#include "trials/guest.h"

#include <dlfcn.h>
#include <platform/control.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <future>
#include <iterator>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "host/difference.h"
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
  GuestState state{platform::SaveRegistry(), {}};
  for (const auto& entry : fs::recursive_directory_iterator(platform::GuestRoot())) {
    const std::string name = entry.path().lexically_relative(platform::GuestRoot()).generic_string();
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
  for (const auto& entry : fs::directory_iterator(platform::GuestRoot())) fs::remove_all(entry);
  for (const auto& [name, bytes] : state.files) {
    const fs::path path = platform::GuestRoot() / name;
    if (name.ends_with('/')) {
      fs::create_directories(path);
    } else if (!(std::ofstream(path, std::ios::binary) << bytes << std::flush)) {
      throw std::runtime_error(name + " cannot be restored");
    }
  }
  platform::LoadRegistry(state.registry);
}

host::Entries Elsewhere() {
  host::Entries elsewhere;
  for (const char* root : {"HKCU", "HKLM"}) host::ReadKeys(root, elsewhere);
  for (const auto& [name, bytes] : SaveGuestState().files) {
    std::string path = "C:\\" + name;
    std::replace(path.begin(), path.end(), '/', '\\');
    elsewhere[path] = bytes;
  }
  for (const std::string& ours : {host::classesKey, host::tessarineKey, host::registeredKey,
                                  host::LauncherFolder(), host::ShortcutFolder()}) {
    std::erase_if(elsewhere, [&](const auto& entry) { return IsAtOrBelow(entry.first, ours); });
  }
  return elsewhere;
}

bool IsAtOrBelow(const std::string& path, const std::string& above) {
  return host::EqualNoCase(path.substr(0, above.size()), above) &&
         (path.size() == above.size() || path[above.size()] == '\\' || path[above.size()] == host::valueMark);
}

Lines Split(const std::string& text) {
  Lines parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, '|');) parts.push_back(part);
  return parts;
}

std::string Difference::Text() const {
  std::string text = path;
  std::replace(text.begin(), text.end(), host::valueMark, '|');
  return (how == How::Missing ? "missing: " : how == How::Changed ? "changed: " : "new: ") + text;
}

std::vector<Difference> Differences(const host::Entries& before, const host::Entries& now) {
  std::vector<Difference> differences;
  host::ForEachDifference(before, now, [&](const auto& path, const std::string* was, const std::string* is) {
    using enum Difference::How;
    differences.push_back({!is ? Missing : was ? Changed : New, path});
  });
  return differences;
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
  module_ = host::LoadModule(host::DefaultModule());
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

host::Catalogue FirstOf(const host::Catalogue& catalogue, std::size_t count) {
  host::Catalogue some;
  for (std::size_t i = 0; i < count; ++i) {
    host::Application app = catalogue.applications().at(i);
    app.icons.resize(1);
    some.Add(std::move(app));
  }
  return some;
}

}  // namespace trials
