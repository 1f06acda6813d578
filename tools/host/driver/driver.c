/* A test double of the tool-gate driver, for Wine's service manager: its devices, its queues and its
   dispatch. The image may import ntoskrnl and kernelbase only: with ntdll or kernel32 Wine takes DriverEntry
   for the entry of a library. */
#include "driver.h"

#include <stdarg.h>
#include <stdio.h>

LIST_ENTRY queues[queueCount];
LIST_ENTRY commands, faults, breaches;
struct GateCounts counts;
DEVICE_OBJECT* guestDevice;
const FILE_OBJECT* owner;

static DEVICE_OBJECT* hostDevice;
static UNICODE_STRING guestDeviceName = RTL_CONSTANT_STRING(L"\\Device\\tsr_tg");
static UNICODE_STRING hostDeviceName = RTL_CONSTANT_STRING(L"\\Device\\tsr_tg_host");
static UNICODE_STRING guestName = RTL_CONSTANT_STRING(L"\\DosDevices\\tsr_tg");
static UNICODE_STRING hostName = RTL_CONSTANT_STRING(L"\\DosDevices\\tsr_tg_host");

static void NTAPI CancelQueued(DEVICE_OBJECT* device, IRP* irp) {
  (void)device;
  IoReleaseCancelSpinLock(irp->CancelIrql);
  RemoveEntryList(&irp->Tail.Overlay.ListEntry);
  if (IsReceive(irp)) ++counts.cancelled;
  Finish(irp, STATUS_CANCELLED, 0);
}

NTSTATUS Pend(enum Queue queue, IRP* irp) {
  IoMarkIrpPending(irp);
  InsertTailList(&queues[queue], &irp->Tail.Overlay.ListEntry);
  IoSetCancelRoutine(irp, CancelQueued);
  return STATUS_PENDING;
}

IRP* First(enum Queue queue) {
  if (IsListEmpty(&queues[queue])) return NULL;
  return CONTAINING_RECORD(queues[queue].Flink, IRP, Tail.Overlay.ListEntry);
}

void Take(IRP* irp) {
  IoSetCancelRoutine(irp, NULL);
  RemoveEntryList(&irp->Tail.Overlay.ListEntry);
}

NTSTATUS Finish(IRP* irp, NTSTATUS status, ULONG_PTR returned) {
  irp->IoStatus.Status = status;
  irp->IoStatus.Information = returned;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

void EndAll(enum Queue queue, const FILE_OBJECT* file, NTSTATUS status) {
  LIST_ENTRY* next;
  for (LIST_ENTRY* at = queues[queue].Flink; at != &queues[queue]; at = next) {
    next = at->Flink;
    IRP* irp = CONTAINING_RECORD(at, IRP, Tail.Overlay.ListEntry);
    if (file && irp->Tail.Overlay.OriginalFileObject != file) continue;
    Take(irp);
    Finish(irp, status, 0);
  }
}

NTSTATUS Store(LIST_ENTRY* list, const void* bytes, ULONG size) {
  struct Item* item = ExAllocatePool(NonPagedPool, sizeof *item + size);
  if (!item) return STATUS_INSUFFICIENT_RESOURCES;
  item->size = size;
  memcpy(item->bytes, bytes, size);
  InsertTailList(list, &item->entry);
  return STATUS_SUCCESS;
}

void Drop(struct Item* item) {
  RemoveEntryList(&item->entry);
  ExFreePool(item);
}

void DropAll(LIST_ENTRY* list) {
  while (!IsListEmpty(list)) Drop(CONTAINING_RECORD(list->Flink, struct Item, entry));
}

NTSTATUS Breach(const char* format, ...) {
  char text[160];
  va_list arguments;
  va_start(arguments, format);
  int length = _vsnprintf(text, sizeof text - 1, format, arguments);
  va_end(arguments);
  ULONG size = length < 0 || length >= (int)sizeof text ? sizeof text - 1 : (ULONG)length;
  text[size++] = '\0';
  if (NT_SUCCESS(Store(&breaches, text, size))) counts.breachBytes += size;
  return STATUS_INVALID_PARAMETER;
}

BOOLEAN SetPresent(BOOLEAN present) {
  static BOOLEAN isPresent;
  if (isPresent == present) return TRUE;
  NTSTATUS status =
      present ? IoCreateSymbolicLink(&guestName, &guestDeviceName) : IoDeleteSymbolicLink(&guestName);
  if (NT_SUCCESS(status)) isPresent = present;
  return NT_SUCCESS(status);
}

static NTSTATUS NTAPI Create(DEVICE_OBJECT* device, IRP* irp) {
  const USHORT shared = FILE_SHARE_READ | FILE_SHARE_WRITE;
  if (device == guestDevice) {
    ++counts.opens;
    USHORT access = IoGetCurrentIrpStackLocation(irp)->Parameters.Create.ShareAccess;
    if ((access & shared) != shared) Breach("device opened with share access %u", access);
  }
  return Finish(irp, STATUS_SUCCESS, 0);
}

static NTSTATUS NTAPI Close(DEVICE_OBJECT* device, IRP* irp) {
  const FILE_OBJECT* file = IoGetCurrentIrpStackLocation(irp)->FileObject;
  for (int queue = 0; queue < queueCount; ++queue) EndAll(queue, file, STATUS_CANCELLED);
  if (device == guestDevice) ++counts.closes;
  if (file == owner) ReleaseOwner();
  return Finish(irp, STATUS_SUCCESS, 0);
}

static NTSTATUS NTAPI Control(DEVICE_OBJECT* device, IRP* irp) {
  NTSTATUS status = device == guestDevice ? GuestControl(irp) : HostControl(irp);
  CompleteIdleWaits();
  return status;
}

static void NTAPI Unload(DRIVER_OBJECT* driver) {
  (void)driver;
  DropAll(&commands);
  DropAll(&faults);
  DropAll(&breaches);
  SetPresent(FALSE);
  IoDeleteSymbolicLink(&hostName);
  IoDeleteDevice(guestDevice);
  IoDeleteDevice(hostDevice);
}

NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING* registryPath);
NTSTATUS NTAPI DriverEntry(DRIVER_OBJECT* driver, UNICODE_STRING* registryPath) {
  (void)registryPath;
  for (int queue = 0; queue < queueCount; ++queue) InitializeListHead(&queues[queue]);
  InitializeListHead(&commands);
  InitializeListHead(&faults);
  InitializeListHead(&breaches);
  driver->MajorFunction[IRP_MJ_CREATE] = Create;
  driver->MajorFunction[IRP_MJ_CLOSE] = Close;
  driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = Control;
  driver->DriverUnload = Unload;

  NTSTATUS status = IoCreateDevice(driver, 0, &guestDeviceName, FILE_DEVICE_UNKNOWN, 0, FALSE, &guestDevice);
  if (!NT_SUCCESS(status)) return status;
  status = IoCreateDevice(driver, 0, &hostDeviceName, FILE_DEVICE_UNKNOWN, 0, FALSE, &hostDevice);
  if (NT_SUCCESS(status)) status = IoCreateSymbolicLink(&hostName, &hostDeviceName);
  if (NT_SUCCESS(status) && !SetPresent(TRUE)) status = STATUS_OBJECT_NAME_COLLISION;
  return status;
}
