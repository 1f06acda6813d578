// Envelopes and failing receives through the event loop itself, which runs on this thread: the gate has all
// of them ready, and a stop lies in the queue. An input is a row of steps, each a byte that says what the
// gate does and what that needs: a status, or an envelope with its size before it.
#include <platform/control.h>

#include <algorithm>
#include <cstring>

#include "channel/tool_gate.h"
#include "frame/event_loop.h"
#include "fuzz/fuzzing.h"
#include "host/gate.h"
#include "host/guest_view.h"
#include "host/prepare.h"
#include "host/replies.h"

namespace {

// The bytes of an input, which are taken one number after the other; zeros follow them.
struct Steps {
  std::span<const std::byte> left;

  std::uint32_t Take(std::size_t size) {
    std::uint32_t number = 0;
    const auto taken = left.first(std::min(size, left.size()));
    std::memcpy(&number, taken.data(), taken.size());
    left = left.subspan(taken.size());
    return number;
  }
};

// What must come of the steps.
struct Expected {
  bool running = true;  // false: the loop rests or has ended, and takes no command any more
  std::uint64_t receives = 0, lists = 0;
  bool shared = false, decided = false;  // the last command 100 that said something
};

void Fail(host::Gate& gate, Steps& steps, Expected& expected) {
  constexpr std::uint32_t errors[] = {0, ERROR_OPERATION_ABORTED, ERROR_RETRY, ERROR_GEN_FAILURE};
  constexpr std::uint32_t statuses[] = {TgStatusSuccess, TgStatusRequeue, TgStatusRetry, TgStatusCancelled};
  const std::uint32_t error = errors[steps.Take(1) % 4];
  const auto chosen = steps.Take(4);
  const std::uint32_t status = chosen < 4 ? statuses[chosen] : chosen;
  gate.FailNext({.systemError = error, .status = status});
  if (!expected.running) return;
  ++expected.receives;
  // A success without a command finds the cleared buffer: no command that there is.
  expected.running =
      error == ERROR_RETRY ||
      (error == 0 && (status == TgStatusSuccess || status == TgStatusRequeue || status == TgStatusRetry));
}

void Push(host::Gate& gate, std::span<const std::byte> envelope, std::span<std::byte> buffer,
          Expected& expected) {
  gate.Push(envelope);
  if (!expected.running) return;
  ++expected.receives;
  std::ranges::copy(envelope, buffer.begin());
  if (host::GetU32(buffer, 0) != 100 || host::GetU32(buffer, 16) == 0) return;
  expected.decided = true;
  expected.shared = buffer[20] != std::byte{0};
  if (expected.shared) ++expected.lists;
}

bool FolderIsThere() {
  static const auto folder = host::Widen(host::LauncherFolder());
  return GetFileAttributesW(folder.c_str()) != INVALID_FILE_ATTRIBUTES;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string registry = [] {
    platform::SetGuestRoot(fuzz::GuestFolder());
    host::PrepareGuest();
    return platform::SaveRegistry();
  }();

  const auto gate = host::CreateGate();
  gate->Serve([](std::span<const std::byte> envelope) { return host::AnswerCommand({}, envelope); });
  // Failing receives come first, whatever their place among the envelopes.
  Expected expected;
  std::vector<std::span<const std::byte>> envelopes;
  for (Steps steps{std::as_bytes(std::span(data, size))}; !steps.left.empty();) {
    if (steps.Take(1) % 4 == 0) {
      Fail(*gate, steps, expected);
    } else {
      const std::size_t length = std::min<std::size_t>(steps.Take(2) % 513, steps.left.size());
      envelopes.push_back(steps.left.first(length));
      steps.left = steps.left.subspan(length);
    }
  }
  std::vector<std::byte> buffer(receiveBufferSize);
  for (const auto envelope : envelopes) Push(*gate, envelope, buffer, expected);

  const bool before = FolderIsThere();
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {  // left by a loop that an exception ended
  }
  PostThreadMessageW(GetCurrentThreadId(), stopMessage, 0, 0);
  ToolWorker worker;
  worker.gate = OpenTg();
  RunEventLoop(worker);
  worker.gate.reset();

  const host::GateFacts facts = gate->Facts();
  const std::uint64_t rest = expected.running ? 1 : 0;  // the receive that stays, and the announcement
  fuzz::Check(facts.receives == expected.receives + rest, "another number of receives");
  fuzz::Check(facts.cancelled == rest, "the last receive is not cancelled");
  fuzz::Check(facts.sends == expected.lists + rest, "another number of requests");
  fuzz::Check(FolderIsThere() == (expected.decided ? expected.shared : before),
              "sharing is not as commanded");
  fuzz::Check(facts.breaches.empty(), "the gate's contract is broken");
  fuzz::Check(facts.opens == facts.closes && platform::Census().empty(), "something is left open");
  fuzz::Check(platform::SaveRegistry() == registry, "the registry has changed");
  return 0;
}
