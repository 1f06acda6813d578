/* What the parts of the gate driver double share: its waiting requests, its stored items and its state.
   The service manager calls every dispatch and cancel routine on one thread, so nothing here has a lock. */
#pragma once

#include <ntddk.h>

#include "control.h"

#define IOCTL_TG_REQUEST 0x22A004u

enum { tgReceive = 0x9100, tgSend = 0x8301, deviceWrites = 1 };
enum { receiveBytes = 512, envelopeHeader = 20, envelopeVersion = 3 };

struct TgBuffer {
  ULONG64 address;
  ULONG byteCount;
  ULONG flags;
};

struct TgRequest {
  ULONG request;
  ULONG status;
  USHORT inlineByteCount;
  USHORT bufferCount;
  ULONG reserved;
  struct TgBuffer buffers[2]; /* as many as `bufferCount` says; the double takes no inline bytes */
};

/* Requests that wait, each in one queue. */
enum Queue {
  outstanding, /* receives that a command will complete */
  settling,    /* receives that a fault will end when the host fetches next */
  unfetched,   /* sends that the host has not seen */
  unanswered,  /* sends that the host works on */
  fetches,     /* the host's own waits */
  idleWaits,
  queueCount
};
extern LIST_ENTRY queues[queueCount];

/* Marks `irp` as pending and puts it last in `queue`, where it can be cancelled. */
NTSTATUS Pend(enum Queue queue, IRP* irp);
IRP* First(enum Queue queue); /* NULL: empty; the request stays queued */
/* Takes a waiting request out of its queue; it can no longer be cancelled. */
void Take(IRP* irp);
NTSTATUS Finish(IRP* irp, NTSTATUS status, ULONG_PTR returned);
/* Ends every request in `queue` that `file` has made; with NULL those of every file. */
void EndAll(enum Queue queue, const FILE_OBJECT* file, NTSTATUS status);

/* Things kept until they are used up, oldest first. */
struct Item {
  LIST_ENTRY entry;
  ULONG size;
  UCHAR bytes[];
};
extern LIST_ENTRY commands, faults, breaches;

NTSTATUS Store(LIST_ENTRY* list, const void* bytes, ULONG size);
void Drop(struct Item* item);
void DropAll(LIST_ENTRY* list);
/* Records a breach of the contract; answers the status with which the breaching request fails. */
NTSTATUS Breach(const char* format, ...) __attribute__((format(printf, 1, 2)));

extern struct GateCounts counts;
extern DEVICE_OBJECT* guestDevice;
extern const FILE_OBJECT* owner; /* the host's handle; NULL: no host */

/* guest.c */
NTSTATUS GuestControl(IRP* irp);
BOOLEAN IsReceive(const IRP* irp);
void DeliverCommands(void); /* completes outstanding receives while there are commands */
void OfferSends(void);      /* completes fetches while there is something for the host */
void SettleReceives(void);  /* ends the receives whose fault was to pend first */
void AnswerSend(const struct GateAnswer* answer, const void* bytes);

/* host.c */
NTSTATUS HostControl(IRP* irp);
void CompleteIdleWaits(void);
void ReleaseOwner(void); /* the host has gone */

BOOLEAN SetPresent(BOOLEAN present); /* gives or takes away the guest device's name */
