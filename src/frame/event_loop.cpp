// The event loop and the dispatch of commands. The device writes into Receive while a request is outstanding,
// so that memory is given up only after the request has completed.
#include "frame/event_loop.h"

#include <objbase.h>

#include <array>
#include <cstring>

#include "channel/tool_gate.h"
#include "frame/sharing_state.h"
#include "log/log.h"

namespace {

constexpr DWORD wakeMask = 0xFF;  // keys, mouse, posted, timer, paint, sent and hot-key input

// What one receive needs for as long as it may be outstanding.
struct Receive {
  std::array<std::byte, receiveBufferSize> buffer{};
  TgPacket<1> packet{{TgReceiveCommand, TgStatusSuccess, 0, 1, 0},
                     {MakeTgBuffer(buffer.data(), receiveBufferSize, deviceWrites)}};
  std::unique_ptr<TgContext> context = CreateTgContext(packet.header);
  bool pending = false;
  Receive* abandonedBefore = nullptr;
};

// Receives that could not be cancelled, the last one first. The device may still write to them, so nothing
// but their completion frees them.
Receive* abandoned = nullptr;

void Abandon(std::unique_ptr<Receive> receive) {
  receive->abandonedBefore = abandoned;
  abandoned = receive.release();
}

void FreeAbandoned() {
  for (Receive** link = &abandoned; *link != nullptr;) {
    Receive* const receive = *link;
    if (WaitForSingleObject(receive->context->Event(), 0) == WAIT_OBJECT_0) {
      *link = receive->abandonedBefore;
      delete receive;
    } else {
      link = &receive->abandonedBefore;
    }
  }
}

// Tells the host that the guest is here; whatever it answers is written over the envelope and ignored.
void Announce(Tg& gate) {
#pragma pack(push, 1)
  struct {
    WMA_Command header{CmdSharingState, commandVersion, 0, 0, 1};
    std::byte on{1};
  } envelope;
#pragma pack(pop)
  static_assert(sizeof envelope == 21);
  TgPacket<2> packet{
      {TgSendCommand, TgStatusSuccess, 0, 2, 0},
      {MakeTgBuffer(&envelope, sizeof envelope, 0), MakeTgBuffer(&envelope, sizeof envelope, deviceWrites)}};
  gate.Call(packet.header);
}

// Submits receives, and runs the commands of those that complete at once, until one stays outstanding. False
// when a receive was refused for good: there will be no further one.
bool SubmitReceive(ToolWorker& worker, Receive& receive) {
  while (true) {
    receive.packet.buffers[0].byteCount = receiveBufferSize;
    worker.gate->Submit(*receive.context);
    if (!worker.gate->Poll(*receive.context)) break;
    const std::uint32_t status = receive.packet.header.status;
    if (status == TgStatusSuccess) {
      DispatchCommand(worker, receive.buffer);
    } else if (status != TgStatusRequeue && status != TgStatusRetry) {
      return false;
    }
  }
  receive.pending = true;
  if (worker.announcePending) {
    worker.announcePending = false;
    Announce(*worker.gate);
  }
  return true;
}

// Handles every queued message. True when the loop is to end.
bool DrainMessages() {
  bool quit = false;
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
    if (message.message == WM_QUIT) {
      quit = true;
    } else if (message.message == stopMessage && message.hwnd == nullptr) {
      PostQuitMessage(0);
    } else {
      DispatchMessageW(&message);
    }
  }
  return quit;
}

void LogFailedWait() {
  const DWORD error = GetLastError();
  if (LogThreshold >= 1) {
    WriteLog("VELO", "Velomira", 1, "Wait failed! Error %d", static_cast<int>(error));
  }
}

// Sleeps until the receive has completed and its command has run: true, submit again. False when the loop is
// to end. A message that somebody has looked at and left in the queue, as COM may within a command, ends the
// sleep like a new one.
bool Rest(ToolWorker& worker, Receive& receive) {
  const HANDLE event = receive.context->Event();
  const DWORD count = receive.pending ? 1 : 0;
  while (true) {
    const DWORD woken = MsgWaitForMultipleObjectsEx(count, &event, INFINITE, wakeMask, MWMO_INPUTAVAILABLE);
    if (woken == WAIT_OBJECT_0 + count) {
      if (DrainMessages()) return false;
    } else if (woken < WAIT_OBJECT_0 + count) {
      if (!worker.gate->Poll(*receive.context)) continue;
      receive.pending = false;
      if (receive.packet.header.status == TgStatusSuccess) DispatchCommand(worker, receive.buffer);
      return true;
    } else {
      LogFailedWait();
      return false;
    }
  }
}

void Loop(ToolWorker& worker, Receive& receive) {
  while (true) {
    const bool dormant = !SubmitReceive(worker, receive);
    const bool submitAgain = Rest(worker, receive);
    if (dormant || !submitAgain) return;  // a dormant loop rests until it is to end
  }
}

// Ends the outstanding receive and waits for it. False when that failed.
bool Drain(ToolWorker& worker, Receive& receive) {
  if (!receive.pending) return true;
  try {
    worker.gate->Cancel();
    receive.context->Wait();
    return true;
  } catch (const TgException&) {
    return false;
  }
}

}  // namespace

void RunEventLoop(ToolWorker& worker) noexcept {
  CoInitialize(nullptr);
  FreeAbandoned();  // of earlier workers
  std::unique_ptr<Receive> receive;
  try {
    receive = std::make_unique<Receive>();
    Loop(worker, *receive);
  } catch (...) {
    // The thread's last barrier: the worker ends as after a failed wait, and the next stop cleans up.
  }
  if (receive && !Drain(worker, *receive)) Abandon(std::move(receive));
  CoUninitialize();
}

void DispatchCommand(ToolWorker& worker, std::span<const std::byte, receiveBufferSize> buffer) {
  WMA_Command header;
  std::memcpy(&header, buffer.data(), sizeof header);
  if (header.code == CmdAnnounceRequest) {
    worker.announcePending = true;
  } else if (header.code == CmdSharingState && header.dataSize != 0) {
    // Without its byte the command says nothing: what lies there is left over from an earlier one.
    HandleSharingState(buffer[sizeof header] != std::byte{0});
  }
}
