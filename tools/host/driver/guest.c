/* The guest's side of the gate driver double: checks what the guest passes, and reads and writes its memory.
   A request's buffers lie in the process that made it, and are reached from here while it waits. */
#include "driver.h"

#define PROCESS_VM_ACCESS 0x38u /* operation, read and write of virtual memory */

__declspec(dllimport) HANDLE WINAPI OpenProcess(ULONG access, int inherit, ULONG id);
__declspec(dllimport) int WINAPI ReadProcessMemory(HANDLE, const void* from, void* to, SIZE_T, SIZE_T*);
__declspec(dllimport) int WINAPI WriteProcessMemory(HANDLE, void* to, const void* from, SIZE_T, SIZE_T*);

static ULONG Least(ULONG a, ULONG b) {
  return a < b ? a : b;
}

static struct TgRequest* RequestOf(const IRP* irp) {
  return irp->AssociatedIrp.SystemBuffer;
}

static ULONG OutputSize(IRP* irp) {
  return IoGetCurrentIrpStackLocation(irp)->Parameters.DeviceIoControl.OutputBufferLength;
}

static HANDLE* ProcessIdOf(IRP* irp) {
  return (HANDLE*)&irp->Tail.Overlay.DriverContext[0];
}

BOOLEAN IsReceive(const IRP* irp) {
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation((IRP*)irp);
  return stack->DeviceObject == guestDevice && RequestOf(irp)->request == tgReceive;
}

static HANDLE OpenGuest(IRP* irp) {
  return OpenProcess(PROCESS_VM_ACCESS, FALSE, HandleToULong(*ProcessIdOf(irp)));
}

static BOOLEAN ReadGuest(IRP* irp, const struct TgBuffer* from, void* to, ULONG size) {
  HANDLE process = OpenGuest(irp);
  if (!process) return FALSE;
  SIZE_T done = 0;
  BOOLEAN ok = ReadProcessMemory(process, (const void*)from->address, to, size, &done) && done == size;
  ZwClose(process);
  return ok;
}

static BOOLEAN WriteGuest(IRP* irp, const struct TgBuffer* to, const void* from, ULONG size) {
  if (size == 0) return TRUE;
  HANDLE process = OpenGuest(irp);
  if (!process) return FALSE;
  SIZE_T done = 0;
  BOOLEAN ok = WriteProcessMemory(process, (void*)to->address, from, size, &done) && done == size;
  ZwClose(process);
  return ok;
}

/* The oldest fault for this kind of request, if any, used up. */
static BOOLEAN TakeFault(ULONG request, struct GateFault* fault) {
  for (LIST_ENTRY* at = faults.Flink; at != &faults; at = at->Flink) {
    struct Item* item = CONTAINING_RECORD(at, struct Item, entry);
    memcpy(fault, item->bytes, sizeof *fault);
    if (fault->request != request) continue;
    Drop(item);
    return TRUE;
  }
  return FALSE;
}

static NTSTATUS EndWithFault(IRP* irp, const struct GateFault* fault) {
  if (fault->ntStatus) return Finish(irp, fault->ntStatus, 0);
  RequestOf(irp)->status = fault->status;
  return Finish(irp, STATUS_SUCCESS, OutputSize(irp));
}

/* Hands the oldest command to `receive`, which is in no queue. */
static NTSTATUS HandCommand(IRP* receive) {
  struct TgRequest* request = RequestOf(receive);
  struct Item* command = CONTAINING_RECORD(commands.Flink, struct Item, entry);
  if (!WriteGuest(receive, &request->buffers[0], command->bytes, command->size)) {
    return Finish(receive, Breach("receive buffer cannot be written"), 0);
  }
  Drop(command);
  request->status = 0;
  return Finish(receive, STATUS_SUCCESS, OutputSize(receive));
}

void DeliverCommands(void) {
  IRP* receive;
  while (!IsListEmpty(&commands) && (receive = First(outstanding)) != NULL) {
    Take(receive);
    HandCommand(receive);
  }
}

static NTSTATUS Receive(IRP* irp) {
  struct TgRequest* request = RequestOf(irp);
  ++counts.receives;
  if (request->bufferCount != 1) {
    return Finish(irp, Breach("receive with %u buffers", request->bufferCount), 0);
  }
  const struct TgBuffer* buffer = &request->buffers[0];
  if (buffer->byteCount != receiveBytes || buffer->flags != deviceWrites) {
    NTSTATUS status = Breach("receive buffer of %lu bytes, flags %lx", buffer->byteCount, buffer->flags);
    return Finish(irp, status, 0);
  }
  struct GateFault fault;
  if (TakeFault(tgReceive, &fault)) {
    if (!fault.pendFirst) return EndWithFault(irp, &fault);
    /* Ended from the host's next fetch: by then the caller has been told that the call is pending. */
    irp->Tail.Overlay.DriverContext[1] = (void*)(LONG_PTR)fault.ntStatus;
    irp->Tail.Overlay.DriverContext[2] = (void*)(ULONG_PTR)fault.status;
    Pend(settling, irp);
    OfferSends();
    return STATUS_PENDING;
  }
  return IsListEmpty(&commands) ? Pend(outstanding, irp) : HandCommand(irp);
}

/* 0 when the two buffers and the envelope in them are as agreed. */
static NTSTATUS CheckSend(IRP* irp, ULONG envelope[envelopeHeader / 4]) {
  const struct TgRequest* request = RequestOf(irp);
  const struct TgBuffer *in = &request->buffers[0], *out = &request->buffers[1];
  if (request->bufferCount != 2) return Breach("send with %u buffers", request->bufferCount);
  if (in->flags != 0 || out->flags != deviceWrites) {
    return Breach("send buffers with flags %lx and %lx", in->flags, out->flags);
  }
  if (in->address != out->address || in->byteCount != out->byteCount) {
    return Breach("send buffers over different memory");
  }
  if (in->byteCount < envelopeHeader)
    return Breach("send of %lu bytes, less than an envelope", in->byteCount);
  if (!ReadGuest(irp, in, envelope, envelopeHeader)) return Breach("send buffer cannot be read");
  if (envelope[1] != envelopeVersion) return Breach("envelope version %lu", envelope[1]);
  if (envelope[2] || envelope[3]) return Breach("envelope with a result or reserved field set");
  ULONG room = Least(in->byteCount, gateRoom - (ULONG)sizeof(struct GateEvent)) - envelopeHeader;
  if (envelope[4] > room) return Breach("envelope data of %lu bytes in %lu", envelope[4], room);
  return STATUS_SUCCESS;
}

static NTSTATUS Send(IRP* irp) {
  ULONG envelope[envelopeHeader / 4];
  ++counts.sends;
  NTSTATUS status = CheckSend(irp, envelope);
  if (!NT_SUCCESS(status)) return Finish(irp, status, 0);
  struct GateFault fault;
  if (TakeFault(tgSend, &fault)) return EndWithFault(irp, &fault);
  if (!owner) return Finish(irp, STATUS_DEVICE_NOT_READY, 0);
  irp->Tail.Overlay.DriverContext[1] = (void*)(ULONG_PTR)(envelopeHeader + envelope[4]);
  Pend(unfetched, irp);
  OfferSends();
  return STATUS_PENDING;
}

void OfferSends(void) {
  static ULONG lastId;
  IRP *fetch, *send;
  if ((fetch = First(fetches)) != NULL && First(settling)) {
    struct GateEvent nothing = {0, 0};
    memcpy(fetch->AssociatedIrp.SystemBuffer, &nothing, sizeof nothing);
    Take(fetch);
    Finish(fetch, STATUS_SUCCESS, sizeof nothing);
  }
  while ((fetch = First(fetches)) != NULL && (send = First(unfetched)) != NULL) {
    struct GateEvent* event = fetch->AssociatedIrp.SystemBuffer;
    event->size = (ULONG)(ULONG_PTR)send->Tail.Overlay.DriverContext[1];
    Take(send);
    if (!ReadGuest(send, &RequestOf(send)->buffers[0], event + 1, event->size)) {
      Finish(send, Breach("send buffer cannot be read"), 0);
      continue;
    }
    event->id = ++lastId;
    send->Tail.Overlay.DriverContext[1] = (void*)(ULONG_PTR)event->id;
    Pend(unanswered, send);
    Take(fetch);
    Finish(fetch, STATUS_SUCCESS, sizeof *event + event->size);
  }
}

void SettleReceives(void) {
  IRP* receive;
  while ((receive = First(settling)) != NULL) {
    struct GateFault fault = {.ntStatus = (LONG)(LONG_PTR)receive->Tail.Overlay.DriverContext[1],
                              .status = (ULONG)(ULONG_PTR)receive->Tail.Overlay.DriverContext[2]};
    Take(receive);
    EndWithFault(receive, &fault);
  }
}

void AnswerSend(const struct GateAnswer* answer, const void* bytes) {
  for (LIST_ENTRY* at = queues[unanswered].Flink; at != &queues[unanswered]; at = at->Flink) {
    IRP* send = CONTAINING_RECORD(at, IRP, Tail.Overlay.ListEntry);
    if ((ULONG)(ULONG_PTR)send->Tail.Overlay.DriverContext[1] != answer->id) continue;
    struct TgRequest* request = RequestOf(send);
    const struct TgBuffer* reply = &request->buffers[1];
    Take(send);
    if (!WriteGuest(send, reply, bytes, Least(answer->size, reply->byteCount))) {
      Finish(send, Breach("send buffer cannot be written"), 0);
      return;
    }
    request->status = answer->status;
    Finish(send, STATUS_SUCCESS, Least(answer->returned, OutputSize(send)));
    return;
  }
}

NTSTATUS GuestControl(IRP* irp) {
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  const ULONG code = stack->Parameters.DeviceIoControl.IoControlCode;
  const ULONG size = stack->Parameters.DeviceIoControl.InputBufferLength;
  const struct TgRequest* request = RequestOf(irp);
  *ProcessIdOf(irp) = PsGetCurrentProcessId();
  if (code != IOCTL_TG_REQUEST) {
    Breach("control code %lx", code);
    return Finish(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
  }
  if (size < FIELD_OFFSET(struct TgRequest, buffers) || size != OutputSize(irp)) {
    return Finish(irp, Breach("request of %lu bytes in, %lu out", size, OutputSize(irp)), 0);
  }
  if (request->inlineByteCount || request->reserved) {
    return Finish(irp, Breach("request with inline bytes or a reserved field set"), 0);
  }
  if (size != FIELD_OFFSET(struct TgRequest, buffers) + request->bufferCount * sizeof(struct TgBuffer)) {
    return Finish(irp, Breach("request of %lu bytes with %u buffers", size, request->bufferCount), 0);
  }
  if (request->request == tgReceive) return Receive(irp);
  if (request->request == tgSend) return Send(irp);
  return Finish(irp, Breach("request code %lx", request->request), 0);
}
