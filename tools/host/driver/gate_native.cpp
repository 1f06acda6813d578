// The gate as an in-process device of the native layer. A request is completed outside the lock, because
// completing it lets the guest run on, which may call back here before Complete has returned.
#include <platform/control.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>

#include "channel/tool_gate.h"
#include "host/driver/gate.h"
#include "host/wire.h"

namespace host {
namespace {

using namespace std::chrono_literals;
using platform::IoRequest;

constexpr const char* deviceName = "\\\\.\\tsr_tg";
constexpr std::uint32_t receiveRoom = 512;

// A request's header and its buffers, copied out of the guest's memory.
struct Packet {
  TgRequest header{};
  std::vector<TgBuffer> buffers;
};

std::byte* MemoryOf(const TgBuffer& buffer) {
  return reinterpret_cast<std::byte*>(static_cast<std::uintptr_t>(buffer.address));
}

void WriteStatus(const IoRequest& request, std::uint32_t status) {
  std::memcpy(static_cast<std::byte*>(request.buffer()) + offsetof(TgRequest, status), &status,
              sizeof status);
}

// Waits that the process has begun. Only a thread that has seen its control call return goes on to wait, so a
// growing number shows that a pending call is known to be pending.
std::size_t WaitsBegun() {
  std::size_t waits = 0;
  for (const auto& [name, count] : platform::CallCounts()) {
    if (name.starts_with("WaitFor") || name.starts_with("MsgWaitFor")) waits += count;
  }
  return waits;
}

class GateDevice : public platform::Device {
 public:
  DWORD Open(DWORD access, DWORD share, bool) override {
    std::lock_guard lock(mutex_);
    if (!present_) return ERROR_FILE_NOT_FOUND;
    ++facts_.opens;
    if (!(access & GENERIC_WRITE)) Breach("opened without write access");
    if (share != (FILE_SHARE_READ | FILE_SHARE_WRITE)) Breach("opened without sharing read and write");
    return 0;
  }

  void Close() override {
    std::lock_guard lock(mutex_);
    ++facts_.closes;
  }

  void Control(std::shared_ptr<IoRequest> request) override {
    Packet packet;
    if (!Read(*request, packet)) return request->Complete(ERROR_INVALID_PARAMETER, 0);
    if (packet.header.request == receiveCommand) return Receive(std::move(request), packet);
    Send(*request, packet);
  }

  void Cancel(const std::shared_ptr<IoRequest>& request) override {
    {
      std::lock_guard lock(mutex_);
      if (outstanding_ != request) return;
      outstanding_.reset();
      ++facts_.cancelled;
    }
    request->Complete(ERROR_OPERATION_ABORTED, 0);
    changed_.notify_all();
  }

  void Push(Bytes envelope) {
    {
      std::lock_guard lock(mutex_);
      pushed_.push_back(std::move(envelope));
    }
    Deliver();
  }

  void FailNext(const Fault& fault) {
    std::lock_guard lock(mutex_);
    faults_.push_back(fault);
  }

  bool WaitIdle(std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [this] {
      return outstanding_ && !failing_ && pushed_.empty() &&
             std::none_of(faults_.begin(), faults_.end(),
                          [](const Fault& fault) { return fault.request == receiveCommand; });
    });
  }

  void Serve(Gate::Answer answer) {
    std::lock_guard lock(answering_);
    answer_ = std::move(answer);
  }

  void SetPresent(bool present) {
    std::lock_guard lock(mutex_);
    present_ = present;
  }

  GateFacts Facts() {
    std::lock_guard lock(mutex_);
    return facts_;
  }

  // A helper's request keeps this device alive: the last to let go must not be a helper, which cannot join
  // itself.
  void EndHelpers() {
    std::vector<std::jthread> helpers;
    {
      std::lock_guard lock(mutex_);
      helpers.swap(helpers_);
    }
  }

 private:
  // Under mutex_.
  void Breach(const std::string& what) { facts_.breaches.push_back(what); }

  // Checks what every request must be; false when it cannot be worked on.
  bool Read(const IoRequest& request, Packet& packet) {
    std::lock_guard lock(mutex_);
    if (request.code() != IOCTL_TG_REQUEST) return Breach("unknown control code"), false;
    if (request.size() < sizeof(TgRequest)) return Breach("request shorter than its header"), false;
    std::memcpy(&packet.header, request.buffer(), sizeof packet.header);
    const std::size_t inlineSize = (packet.header.inlineByteCount + 7u) / 8 * 8;
    const std::size_t start = sizeof(TgRequest) + inlineSize;
    if (request.size() != start + packet.header.bufferCount * sizeof(TgBuffer)) {
      return Breach("request size does not fit its buffer count"), false;
    }
    packet.buffers.resize(packet.header.bufferCount);
    std::memcpy(packet.buffers.data(), static_cast<const std::byte*>(request.buffer()) + start,
                packet.buffers.size() * sizeof(TgBuffer));
    if (packet.header.reserved != 0) Breach("reserved field is not zero");
    if (packet.header.request == receiveCommand) return ReadReceive(packet);
    if (packet.header.request == sendCommand) return ReadSend(packet);
    return Breach("unknown request"), false;
  }

  bool ReadReceive(const Packet& packet) {
    if (packet.buffers.size() != 1) return Breach("receive without its one buffer"), false;
    const TgBuffer& buffer = packet.buffers[0];
    if (buffer.flags != deviceWrites) Breach("receive buffer's flags are not 1");
    if (buffer.byteCount == receiveRoom && buffer.address != 0) return true;
    return Breach("receive buffer is not of 512 bytes"), false;
  }

  bool ReadSend(const Packet& packet) {
    if (packet.buffers.size() != 2) return Breach("send without its two buffers"), false;
    const TgBuffer &out = packet.buffers[0], &in = packet.buffers[1];
    if (out.flags != 0 || in.flags != deviceWrites) Breach("send buffers' flags are not 0 and 1");
    if (out.address != in.address || out.byteCount != in.byteCount) {
      return Breach("send buffers lie over different memory"), false;
    }
    if (out.address == 0 || out.byteCount < sizeof(WMA_Command)) {
      return Breach("send buffer is shorter than an envelope"), false;
    }
    WMA_Command header;
    std::memcpy(&header, MemoryOf(out), sizeof header);
    if (header.version != commandVersion) Breach("envelope version is not 3");
    if (header.result != 0 || header.reserved != 0) Breach("envelope result or reserved is not zero");
    if (header.dataSize <= out.byteCount - sizeof(WMA_Command)) return true;
    return Breach("envelope data reach past the buffer"), false;
  }

  void Receive(std::shared_ptr<IoRequest> request, const Packet& packet) {
    std::unique_lock lock(mutex_);
    ++facts_.receives;
    if (const auto fault = TakeFault(receiveCommand)) {
      if (!fault->pendFirst) {
        lock.unlock();
        End(*request, *fault);
      } else {
        outstanding_ = std::move(request);
        failing_ = true;
        helpers_.emplace_back(
            [this, fault = *fault, held = outstanding_, before = WaitsBegun()](const std::stop_token& stop) {
              while (WaitsBegun() == before && !stop.stop_requested()) std::this_thread::sleep_for(1ms);
              FailPending(held, fault);
            });
      }
      return changed_.notify_all();
    }
    if (outstanding_) Breach("a second receive while one is outstanding");
    outstanding_ = std::move(request);
    receiveMemory_ = MemoryOf(packet.buffers[0]);
    lock.unlock();
    Deliver();
    changed_.notify_all();
  }

  void FailPending(const std::shared_ptr<IoRequest>& request, const Fault& fault) {
    bool cancelled = false;
    {
      std::lock_guard lock(mutex_);
      failing_ = false;
      cancelled = outstanding_ != request;
      if (!cancelled) outstanding_.reset();
    }
    if (cancelled) {
      Deliver();  // to the receive that has come since
    } else {
      End(*request, fault);
    }
    changed_.notify_all();
  }

  // Brings the next pushed command and the outstanding receive together, when there are both.
  void Deliver() {
    std::shared_ptr<IoRequest> request;
    {
      std::lock_guard lock(mutex_);
      if (!outstanding_ || failing_ || pushed_.empty()) return;
      request = std::move(outstanding_);
      outstanding_.reset();
      std::copy(pushed_.front().begin(), pushed_.front().end(), receiveMemory_);
      pushed_.pop_front();
    }
    WriteStatus(*request, TgStatusSuccess);
    request->Complete(0, request->size());
    changed_.notify_all();
  }

  void Send(IoRequest& request, const Packet& packet) {
    std::optional<Fault> fault;
    {
      std::lock_guard lock(mutex_);
      ++facts_.sends;
      fault = TakeFault(sendCommand);
    }
    if (fault) return End(request, *fault);
    const TgBuffer& buffer = packet.buffers[0];
    std::byte* memory = MemoryOf(buffer);
    WMA_Command header;
    std::memcpy(&header, memory, sizeof header);
    Reply reply;
    {
      std::lock_guard lock(answering_);
      if (answer_) {
        reply = answer_({memory, sizeof header + header.dataSize});
      } else {
        header.dataSize = 0;
        const auto* bytes = reinterpret_cast<const std::byte*>(&header);
        reply.bytes.assign(bytes, bytes + sizeof header);
      }
    }
    std::copy_n(reply.bytes.begin(), std::min<std::size_t>(reply.bytes.size(), buffer.byteCount), memory);
    WriteStatus(request, reply.status);
    request.Complete(0, reply.returned);
  }

  static void End(IoRequest& request, const Fault& fault) {
    if (fault.systemError != 0) return request.Complete(fault.systemError, 0);
    WriteStatus(request, fault.status);
    request.Complete(0, request.size());
  }

  // Under mutex_.
  std::optional<Fault> TakeFault(std::uint32_t kind) {
    const auto found = std::find_if(faults_.begin(), faults_.end(),
                                    [&](const Fault& fault) { return fault.request == kind; });
    if (found == faults_.end()) return std::nullopt;
    const Fault fault = *found;
    faults_.erase(found);
    return fault;
  }

  std::mutex answering_;  // held during an answer, so that answers come one at a time
  Gate::Answer answer_;

  std::mutex mutex_;  // guards all that follows
  std::condition_variable changed_;
  bool present_ = true;
  GateFacts facts_;
  std::deque<Bytes> pushed_;
  std::deque<Fault> faults_;
  std::shared_ptr<IoRequest> outstanding_;
  std::byte* receiveMemory_ = nullptr;  // of the outstanding receive
  bool failing_ = false;                // the outstanding receive is to end with a fault
  std::vector<std::jthread> helpers_;   // last, so that they end before what they use
};

class NativeGate : public Gate {
 public:
  NativeGate() { platform::SetDevice(deviceName, device_); }
  ~NativeGate() override {
    platform::SetDevice(deviceName, nullptr);
    device_->EndHelpers();
  }
  NativeGate(const NativeGate&) = delete;
  NativeGate& operator=(const NativeGate&) = delete;

  void Serve(Answer answer) override { device_->Serve(std::move(answer)); }
  void Push(std::span<const std::byte> envelope) override {
    if (envelope.size() > receiveRoom) throw std::runtime_error("a command for the guest exceeds 512 bytes");
    device_->Push({envelope.begin(), envelope.end()});
  }
  void FailNext(const Fault& fault) override { device_->FailNext(fault); }
  bool WaitIdle(std::chrono::milliseconds limit) override { return device_->WaitIdle(limit); }
  void SetPresent(bool present) override { device_->SetPresent(present); }
  GateFacts Facts() override { return device_->Facts(); }

 private:
  std::shared_ptr<GateDevice> device_ = std::make_shared<GateDevice>();
};

}  // namespace

std::unique_ptr<Gate> CreateGate() {
  return std::make_unique<NativeGate>();
}

}  // namespace host
