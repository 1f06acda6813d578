// Envelopes and failing receives through the event loop itself, which runs on this thread: the gate has all
// of them ready, and a stop lies in the queue. An input is a row of steps.
#include <fuzzer/FuzzedDataProvider.h>
#include <platform/control.h>

#include <algorithm>

#include "channel/tool_gate.h"
#include "frame/event_loop.h"
#include "fuzz/fuzzing.h"
#include "guest/guest_view.h"
#include "host/driver/gate.h"
#include "host/prepare.h"
#include "host/replies.h"

namespace {

// What must come of the steps.
struct Expected {
  bool isRunning = true;  // false: the loop rests or has ended, and takes no command any more
  std::uint64_t receives = 0, lists = 0;
  bool isShared = false;  // by the last command that said something
};

host::Fault FaultOf(FuzzedDataProvider& steps) {
  const std::uint32_t error =
      steps.PickValueInArray<std::uint32_t>({0, ERROR_OPERATION_ABORTED, ERROR_RETRY, ERROR_GEN_FAILURE});
  const std::uint32_t known = steps.PickValueInArray<std::uint32_t>(
      {TgStatusSuccess, TgStatusRequeue, TgStatusRetry, TgStatusCancelled});
  return {.systemError = error,
          .status = steps.ConsumeBool() ? known : steps.ConsumeIntegral<std::uint32_t>()};
}

host::Bytes EnvelopeOf(FuzzedDataProvider& steps) {
  if (steps.ConsumeBool()) return steps.ConsumeBytes<std::byte>(steps.ConsumeIntegralInRange(0, 512));
  return steps.ConsumeBool() ? host::AnnounceCommand() : host::SharingCommand(steps.ConsumeBool());
}

void Expect(const host::Fault& fault, Expected& expected) {
  if (!expected.isRunning) return;
  ++expected.receives;
  // A success without a command finds the cleared buffer: no command that there is.
  const std::uint32_t taken[] = {TgStatusSuccess, TgStatusRequeue, TgStatusRetry};
  expected.isRunning = fault.systemError == ERROR_RETRY ||
                       (fault.systemError == 0 && std::ranges::find(taken, fault.status) != std::end(taken));
}

void Expect(std::span<const std::byte> envelope, host::Bytes& buffer, Expected& expected) {
  if (!expected.isRunning) return;
  ++expected.receives;
  std::ranges::copy(envelope, buffer.begin());
  if (host::GetU32(buffer, 0) != 100 || host::GetU32(buffer, 16) == 0) return;
  expected.isShared = buffer[20] != std::byte{0};
  if (expected.isShared) ++expected.lists;
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
  static const auto folder = host::Widen(host::LauncherFolder());
  const auto isShared = [] { return GetFileAttributesW(folder.c_str()) != INVALID_FILE_ATTRIBUTES; };
  // Failing receives come first, whatever their place among the envelopes.
  Expected expected{.isShared = isShared()};
  std::vector<host::Bytes> envelopes;
  for (FuzzedDataProvider steps(data, size); steps.remaining_bytes() != 0;) {
    if (steps.ConsumeBool()) {
      const host::Fault fault = FaultOf(steps);
      gate->FailNext(fault);
      Expect(fault, expected);
    } else {
      envelopes.push_back(EnvelopeOf(steps));
      gate->Push(envelopes.back());
    }
  }
  host::Bytes buffer(receiveBufferSize);
  for (const host::Bytes& envelope : envelopes) Expect(envelope, buffer, expected);

  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {  // left by a loop that an exception ended
  }
  PostThreadMessageW(GetCurrentThreadId(), stopMessage, 0, 0);
  ToolWorker worker;
  worker.gate = OpenTg();
  RunEventLoop(worker);
  worker.gate.reset();

  const host::GateFacts facts = gate->Facts();
  const std::uint64_t rest = expected.isRunning ? 1 : 0;  // the receive that stays, and the announcement
  fuzz::Check(facts.receives == expected.receives + rest, "another number of receives");
  fuzz::Check(facts.cancelled == rest, "the last receive is not cancelled");
  fuzz::Check(facts.sends == expected.lists + rest, "another number of requests");
  fuzz::Check(isShared() == expected.isShared, "sharing is not as commanded");
  fuzz::Check(facts.breaches.empty(), "the gate's contract is broken");
  fuzz::Check(facts.opens == facts.closes && platform::Census().empty(), "something is left open");
  fuzz::Check(platform::SaveRegistry() == registry, "the registry has changed");
  return 0;
}
