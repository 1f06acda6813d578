// The host's end of the tool gate. CreateGate gives the one that this build has: an in-process device
// natively, the control device of the gate driver double on Windows. At most one gate exists at a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace host {

inline constexpr std::uint32_t receiveCommand = 0x9100;  // the guest waits for a command
inline constexpr std::uint32_t sendCommand = 0x8301;     // the guest sends a command and reads the reply

// What the host answers to a command that the guest sends.
struct Reply {
  std::vector<std::byte> bytes;  // written over the request's memory from its start; never past its size
  std::uint32_t status = 0;      // the request's status
  std::uint32_t returned = 48;   // bytes that the control call reports
};

// How the next request of one kind ends instead of the usual; faults of a kind are used up in order.
struct Fault {
  std::uint32_t request = receiveCommand;
  std::uint32_t systemError = 0;  // other than 0: the control call fails with it
  std::uint32_t status = 0;       // with systemError 0: completes with this status
  bool pendFirst = false;         // receive only: the call is pending before it ends so
};

// What the gate has seen since it was created.
struct GateFacts {
  std::uint64_t opens = 0;
  std::uint64_t closes = 0;
  std::uint64_t receives = 0;         // receive requests submitted
  std::uint64_t sends = 0;            // send requests
  std::uint64_t cancelled = 0;        // receives ended by a cancellation
  std::vector<std::string> breaches;  // requests that break the contract, one text each
};

class Gate {
 public:
  // Answers one command (the whole envelope, header included). Called on any thread, one call at a time.
  using Answer = std::function<Reply(std::span<const std::byte> envelope)>;

  virtual ~Gate() = default;
  // Sets who answers commands; without one every command is answered with a zero `result` and no data.
  virtual void Serve(Answer answer) = 0;
  // Queues one command (envelope bytes, 512 at most) for the guest's receive.
  virtual void Push(std::span<const std::byte> envelope) = 0;
  virtual void FailNext(const Fault& fault) = 0;
  // Waits until a receive is outstanding and no pushed command and no receive fault is left; false on
  // time-out.
  virtual bool WaitIdle(std::chrono::milliseconds limit) = 0;
  // False: the device cannot be opened any more (open handles stay usable) until set again.
  virtual void SetPresent(bool present) = 0;
  virtual GateFacts Facts() = 0;
};

// The gate of this build; throws std::runtime_error with the reason when it cannot be had.
std::unique_ptr<Gate> CreateGate();

}  // namespace host
