/* The host's side of the gate driver double: the control device.
   Calls are answered at once but for a fetch and a wait for idleness, which pend. */
#include "driver.h"

extern const UCHAR __ImageBase[];

static uint32_t ImageStamp(void) {
  uint32_t header, stamp;
  memcpy(&header, __ImageBase + gateImageHeaderAt, sizeof header);
  memcpy(&stamp, __ImageBase + header + gateStampAt, sizeof stamp);
  return stamp;
}

static BOOLEAN IsIdle(void) {
  if (!First(outstanding) || First(settling) || !IsListEmpty(&commands)) return FALSE;
  for (const LIST_ENTRY* at = faults.Flink; at != &faults; at = at->Flink) {
    const struct Item* item = CONTAINING_RECORD(at, struct Item, entry);
    if (((const struct GateFault*)item->bytes)->request == tgReceive) return FALSE;
  }
  return TRUE;
}

void CompleteIdleWaits(void) {
  if (IsIdle()) EndAll(idleWaits, NULL, STATUS_SUCCESS);
}

void ReleaseOwner(void) {
  owner = NULL;
  SettleReceives();
  EndAll(unfetched, NULL, STATUS_DEVICE_NOT_CONNECTED);
  EndAll(unanswered, NULL, STATUS_DEVICE_NOT_CONNECTED);
  DropAll(&commands);
  DropAll(&faults);
  SetPresent(TRUE);
}

static NTSTATUS Claim(IRP* irp, const FILE_OBJECT* file, ULONG outputSize) {
  const uint32_t stamp = ImageStamp();
  if (owner) return Finish(irp, STATUS_DEVICE_BUSY, 0);
  if (outputSize < sizeof stamp) return Finish(irp, STATUS_INVALID_PARAMETER, 0);
  owner = file;
  DropAll(&breaches);
  RtlZeroMemory(&counts, sizeof counts);
  memcpy(irp->AssociatedIrp.SystemBuffer, &stamp, sizeof stamp);
  return Finish(irp, STATUS_SUCCESS, sizeof stamp);
}

static NTSTATUS Report(IRP* irp, ULONG outputSize) {
  UCHAR* output = irp->AssociatedIrp.SystemBuffer;
  ULONG used = sizeof counts;
  if (outputSize < used) return Finish(irp, STATUS_INVALID_PARAMETER, 0);
  for (const LIST_ENTRY* at = breaches.Flink; at != &breaches; at = at->Flink) {
    const struct Item* text = CONTAINING_RECORD(at, struct Item, entry);
    if (text->size > outputSize - used) break;
    memcpy(output + used, text->bytes, text->size);
    used += text->size;
  }
  struct GateCounts report = counts;
  report.breachBytes = used - sizeof counts;
  memcpy(output, &report, sizeof report);
  return Finish(irp, STATUS_SUCCESS, used);
}

NTSTATUS HostControl(IRP* irp) {
  const IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
  const ULONG inputSize = stack->Parameters.DeviceIoControl.InputBufferLength;
  const ULONG outputSize = stack->Parameters.DeviceIoControl.OutputBufferLength;
  const UCHAR* input = irp->AssociatedIrp.SystemBuffer;
  const ULONG code = stack->Parameters.DeviceIoControl.IoControlCode;
  if (code == gateClaim) return Claim(irp, stack->FileObject, outputSize);
  if (stack->FileObject != owner) return Finish(irp, STATUS_ACCESS_DENIED, 0);

  NTSTATUS status = STATUS_INVALID_PARAMETER;
  switch (code) {
    case gateFetch:
      if (outputSize != gateRoom) break;
      SettleReceives();
      Pend(fetches, irp);
      OfferSends();
      return STATUS_PENDING;
    case gateAnswer: {
      const struct GateAnswer* answer = (const struct GateAnswer*)input;
      if (inputSize < sizeof *answer || answer->size != inputSize - sizeof *answer) break;
      AnswerSend(answer, answer + 1);
      status = STATUS_SUCCESS;
      break;
    }
    case gatePush:
      if (inputSize < envelopeHeader || inputSize > receiveBytes) break;
      status = Store(&commands, input, inputSize);
      DeliverCommands();
      break;
    case gateFault:
      if (inputSize != sizeof(struct GateFault)) break;
      status = Store(&faults, input, inputSize);
      break;
    case gatePresent:
      if (inputSize == sizeof(uint32_t) && SetPresent(*(const uint32_t*)input != 0)) status = STATUS_SUCCESS;
      break;
    case gateCounts:
      return Report(irp, outputSize);
    case gateAwaitIdle:
      return Pend(idleWaits, irp);
  }
  return Finish(irp, status, 0);
}
