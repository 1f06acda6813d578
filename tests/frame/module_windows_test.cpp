// The module as its loading program has it, the DLL over a real driver: what a thousand runs leave, and two
// modules in two processes at one device.
#include <windows.h>

#include <winternl.h>

#include "support/child_process.h"
#include "support/tool_guest.h"

namespace {

// The open handles of this process. GetProcessHandleCount is always 0 under Wine.
ULONG Handles() {
  std::vector<std::byte> list(1 << 20);
  EXPECT_EQ(NtQuerySystemInformation(SystemProcessInformation, list.data(), static_cast<ULONG>(list.size()),
                                     nullptr),
            0);
  for (const std::byte* at = list.data();;) {
    const auto* process = reinterpret_cast<const SYSTEM_PROCESS_INFORMATION*>(at);
    if (HandleToULong(process->UniqueProcessId) == GetCurrentProcessId()) return process->HandleCount;
    if (process->NextEntryOffset == 0) return 0;
    at += process->NextEntryOffset;
  }
}

using ModuleLibrary = ToolGuest;

TEST_F(ModuleLibrary, AThousandRunsLeaveNoHandleAndTheLibraryGoes) {
  ULONG handles = 0;
  constexpr std::uint64_t warm = 5, all = warm + 1000;
  for (std::uint64_t run = 0; run < all; ++run) {
    if (run == warm) handles = Handles();
    ASSERT_EQ(module->Start(), 0);
    if (run % 100 == 99) Run(other);
    ASSERT_EQ(module->Stop(), 0);
  }
  const host::GateFacts facts = gate().Facts();
  EXPECT_NE(handles, 0u);
  EXPECT_EQ(Handles(), handles);
  EXPECT_EQ(facts.closes, facts.opens);
  EXPECT_EQ(facts.cancelled, all);
  EXPECT_NE(GetModuleHandleW(L"velomira.dll"), nullptr);
  module.reset();
  EXPECT_EQ(GetModuleHandleW(L"velomira.dll"), nullptr);
}

// The host's side of two guests at one device.
class TwoGuests {
 public:
  TwoGuests() {
    gate->Serve([this](std::span<const std::byte> envelope) {
      announcements += host::GetU32(envelope, 0) == 100;
      return host::AnswerCommand({}, envelope);
    });
  }
  // Asks for `count` announcements, one after the other, and waits for them.
  void Announce(int count) {
    const int before = announcements;
    for (int i = 1; i <= count; ++i) {
      gate->Push(host::AnnounceCommand());
      EXPECT_TRUE(Becomes([&] { return announcements == before + i; })) << announcements;
    }
  }
  // Starts a guest and waits for its own announcement, at which it has both handles of the device.
  template <class Start>
  auto Begin(Start start) {
    const int before = announcements;
    auto result = start();
    EXPECT_TRUE(Becomes([&] { return announcements == before + 1; })) << announcements;
    return result;
  }
  template <class Condition>
  static bool Becomes(Condition condition) {
    for (int i = 0; i < 3000 && !condition(); ++i) Sleep(10);
    return condition();
  }
  std::uint64_t Open() {
    const host::GateFacts facts = gate->Facts();
    return facts.opens - facts.closes;
  }

  std::unique_ptr<host::Gate> gate = host::CreateGate();
  std::atomic<int> announcements = 0;
};

TEST(ModuleProcesses, TwoModulesShareTheCommandsAndAreCleanedUpApart) {
  if (IsChild()) {
    const auto module = host::LoadModule(host::DefaultModule());
    EXPECT_EQ(module->Start(), 0);
    ChildIsReady();
    AwaitParent();
    EXPECT_EQ(module->Stop(), 0);
    return;
  }
  TwoGuests guests;
  const auto module = host::LoadModule(host::DefaultModule());
  EXPECT_EQ(guests.Begin([&] { return module->Start(); }), 0);
  {
    const auto other = guests.Begin([] { return std::make_unique<Child>(); });
    EXPECT_EQ(guests.Open(), 4u);
    guests.Announce(10);  // each by one of the two
    EXPECT_EQ(other->LetGo(), 0u);
    EXPECT_EQ(guests.gate->Facts().cancelled, 1u);
    EXPECT_EQ(guests.Open(), 2u);
    guests.Announce(1);
  }
  const auto dying = guests.Begin([] { return std::make_unique<Child>(); });
  guests.Announce(4);
  EXPECT_EQ(module->Stop(), 0);
  EXPECT_EQ(guests.Open(), 2u);
  guests.Announce(1);  // by the other process now
  EXPECT_EQ(guests.Begin([&] { return module->Start(); }), 0);
  dying->Kill();
  // Wine tells the driver of a handle's end a little after the process's.
  EXPECT_TRUE(guests.Becomes([&] { return guests.Open() == 2; }));
  guests.Announce(4);
  EXPECT_EQ(module->Stop(), 0);
  EXPECT_EQ(guests.Open(), 0u);
  EXPECT_TRUE(guests.gate->Facts().breaches.empty());
}

}  // namespace
