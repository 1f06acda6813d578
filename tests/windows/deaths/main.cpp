// velomira_deaths CATALOGUE [POINTS]: plays the host for guest processes that are ended in the middle of
// "on", of "on" with a changed catalogue, and of "off", at points that spread over the command. After each
// death the next process must bring the guest to what the catalogue asks for, and back to nothing but the
// documented residue. With "guest" alone it is such a process: it loads the module, starts it and never ends.
#include <windows.h>

#include <shellapi.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <iostream>
#include <mutex>
#include <set>
#include <stdexcept>

#include "common/handles.h"
#include "guest/guest_view.h"
#include "host/catalogue.h"
#include "host/driver/gate.h"
#include "host/prepare.h"
#include "host/replies.h"
#include "host/system.h"
#include "host/verify.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using host::Snapshot;

constexpr auto patience = 60s;

[[noreturn]] void Fail(const std::string& what) {
  throw std::runtime_error(what);
}
void Expect(const std::vector<std::string>& differences, const std::string& when) {
  std::string text = "the guest does not hold what it must " + when + ":";
  for (const std::string& difference : differences) text += "\n  " + difference;
  if (!differences.empty()) Fail(text);
}

// A process that runs the module, until its owner ends it.
struct GuestProcessTraits {
  using Handle = HANDLE;
  static Handle invalid() { return nullptr; }
  static void close(Handle process) {
    TerminateProcess(process, 1);
    WaitForSingleObject(process, INFINITE);
    CloseHandle(process);
  }
};
using GuestProcess = Unique<GuestProcessTraits>;

GuestProcess StartGuestProcess() {
  std::array<wchar_t, MAX_PATH> program{};
  GetModuleFileNameW(nullptr, program.data(), MAX_PATH);
  std::wstring commandLine = L"velomira_deaths guest";
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started{};
  if (!CreateProcessW(program.data(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                      &startup, &started)) {
    Fail("a guest process cannot be started: error " + std::to_string(GetLastError()));
  }
  CloseHandle(started.hThread);
  return GuestProcess(started.hProcess);
}

// Made with the launcher and never again: the shortcut and the open command. They are missing where a
// process ended just before it made them, or while "off" was deleting the key.
bool IsMadeOnce(const std::string& difference) {
  return difference.starts_with("missing: ") &&
         (difference.ends_with(" (Mac).lnk") ||
          (difference.find("\\Classes\\Applications\\") != std::string::npos &&
           (difference.find("\\shell") != std::string::npos || difference.ends_with("value (default)"))));
}

class Deaths {
 public:
  explicit Deaths(const host::Catalogue& catalogue) : catalogue_(catalogue), changed_(catalogue) {
    const auto& apps = catalogue.applications();
    changed_.Rename(apps.at(0).name, apps.at(0).name + " Deluxe");
    changed_.Remove(apps.at(1).name);
    gate_->Serve([this](std::span<const std::byte> envelope) {
      const std::lock_guard lock(mutex_);
      announcements_ += host::ReadQuestion(envelope).code == 100;
      return host::AnswerCommand(shared_, envelope);
    });
    NextProcess();
    // Takes back what an earlier run has left of these applications.
    for (const host::Catalogue* each : {&catalogue_, &changed_}) {
      Run(true, *each);
      Run(false, *each);
    }
    before_ = host::TakeSnapshot();
    lasts_ = {Run(true, catalogue_), Run(true, changed_), Run(false, changed_)};
    start_ = host::TakeSnapshot();
  }

  // Point `number` of `points`; the three commands take turns.
  void Die(int number, int points) {
    const auto what = static_cast<std::size_t>(number % 3);
    const bool on = what != 2;
    // The machine may be slower or faster by now.
    if (what != 0) pace_ = std::chrono::duration<double>(Run(true, catalogue_)) / lasts_[0];
    Share(what == 1 ? changed_ : catalogue_);
    const int each = (points + 2) / 3;
    const auto delay =
        std::chrono::duration_cast<Clock::duration>(lasts_[what] * pace_ * (number / 3 + 0.5) / each);

    const auto start = Clock::now();
    gate_->Push(host::SharingCommand(on));
    while (Clock::now() - start < delay) Sleep(delay - (Clock::now() - start) > 2ms ? 1 : 0);
    within_ += !gate_->WaitIdle(0ms);
    NextProcess();

    const std::string when = std::string(names[what]) + " was cut off after " +
                             std::to_string(std::chrono::duration<double>(delay).count()) + " s";
    const Snapshot left = host::TakeSnapshot();
    guests_.insert({left.files, left.registry});
    // The next "on" does what it must with what is there; where it finds a launcher without its key, that is
    // to remove it, and the one after completes the guest.
    const host::Catalogue& wanted = what == 1 ? changed_ : catalogue_;
    host::GuestModel model(left, host::LookAround()), undisturbed(start_, host::LookAround());
    if (what != 0) undisturbed.On(catalogue_);
    undisturbed.On(wanted);
    for (int i = 0; i < 2; ++i) {
      Run(true, wanted);
      model.On(wanted);
      Expect(model.Compare(host::TakeSnapshot()), "with sharing on after " + when);
    }
    std::vector<std::string> differences = undisturbed.Compare(host::TakeSnapshot());
    partial_ += std::erase_if(differences, IsMadeOnce) != 0;
    Expect(differences, "with sharing on twice after " + when);
    Run(false, wanted);
    model.Off();
    start_ = host::TakeSnapshot();
    Expect(model.Compare(start_), "with sharing off after " + when);
    Expect(host::BeyondResidue(before_, start_), "beyond the residue after " + when);
  }

  void Report(int points) const {
    std::cout << points << " deaths, " << within_ << " of them within their command, left " << guests_.size()
              << " different guests; each was mended, " << partial_
              << " but for a shortcut or an open command, and taken back\n";
    if (2 * within_ < points) Fail("too few within a command: is the machine much faster at times?");
  }

 private:
  static constexpr const char* names[] = {"\"on\"", "a change", "\"off\""};

  void Share(const host::Catalogue& catalogue) {
    const std::lock_guard lock(mutex_);
    shared_ = catalogue;
  }

  // Ends the guest's process, and returns when the next one waits for commands.
  void NextProcess() {
    process_.reset();
    Await([&] { return gate_->Facts().opens == gate_->Facts().closes; }, "the dead process keeps its device");
    CheckBreaches(true);
    const int before = announcements_;
    process_ = StartGuestProcess();
    Await([&] { return announcements_ != before; }, "a guest process does not announce itself");
    AwaitIdle();
  }

  template <class Condition>
  static void Await(Condition condition, const char* failure) {
    const auto end = Clock::now() + patience;
    while (!condition()) {
      if (Clock::now() > end) Fail(failure);
      Sleep(2);
    }
  }

  void AwaitIdle() {
    if (!gate_->WaitIdle(patience)) Fail("the guest is not ready again");
    CheckBreaches(false);
  }

  // The driver may find the memory of a process gone that has just died; that is no breach of the process's.
  void CheckBreaches(bool died) {
    const auto breaches = gate_->Facts().breaches;
    for (; breaches_ < breaches.size(); ++breaches_) {
      const bool memory = breaches[breaches_].find("buffer cannot be") != std::string::npos;
      if (!died || !memory) Fail("breach of the contract: " + breaches[breaches_]);
    }
  }

  Clock::duration Run(bool on, const host::Catalogue& catalogue) {
    Share(catalogue);
    const auto start = Clock::now();
    gate_->Push(host::SharingCommand(on));
    AwaitIdle();
    return Clock::now() - start;
  }

  host::Catalogue catalogue_, changed_;
  std::mutex mutex_;  // guards the catalogue in use
  host::Catalogue shared_;
  std::atomic<int> announcements_ = 0;
  std::unique_ptr<host::Gate> gate_ = host::CreateGate();
  GuestProcess process_;
  Snapshot before_, start_;  // without applications: at first, and before the point's commands
  std::array<Clock::duration, 3> lasts_{};
  std::size_t breaches_ = 0;  // those that have been looked at
  double pace_ = 1;
  int within_ = 0, partial_ = 0;
  std::set<std::pair<host::Entries, host::Entries>> guests_;  // that a death has left
};

int Run(int count, wchar_t** arguments) {
  if (count == 2 && arguments[1] == std::wstring(L"guest")) {
    const auto module = std::make_unique<host::Module>(host::DefaultModule());
    if (module->Start() != 0) return 1;
    Sleep(INFINITE);
  }
  const int points = count == 3 ? _wtoi(arguments[2]) : 120;
  if (count < 2 || points < 3) Fail("usage: velomira_deaths CATALOGUE [POINTS, at least 3]");
  host::OpenConsole();
  host::PrepareGuest();
  Deaths deaths(host::Catalogue::Load(arguments[1]));
  for (int i = 0; i < points; ++i) deaths.Die(i, points);
  deaths.Report(points);
  return 0;
}

}  // namespace

int main() {
  try {
    int count = 0;
    wchar_t** const arguments = CommandLineToArgvW(GetCommandLineW(), &count);
    return Run(count, arguments);
  } catch (const std::exception& failure) {
    std::cout << std::flush;
    std::cerr << "velomira_deaths: " << failure.what() << std::endl;
    return 1;
  }
}
