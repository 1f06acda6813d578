/* The control device of the gate driver double: what its one owner, the host, sends it and gets back.
   C and C++. All calls are METHOD_BUFFERED on an overlapped handle, since some of them wait; every call but
   the claim fails on a handle that has not claimed the gate. */
#pragma once

#include <stdint.h>

#define GATE_CONTROL_CODE(n) (0x220000u | ((0x900u + (n)) << 2)) /* device type 0x22, any access */

enum GateControl {
  /* Becomes the owner and starts anew: counts, queues and breaches are cleared. Out: uint32_t, the stamp
     in the header of the loaded image, by which the host tells a driver that has been rebuilt since. */
  gateClaim = GATE_CONTROL_CODE(0),
  /* Waits for the guest. Out: a GateEvent and `size` envelope bytes. */
  gateFetch = GATE_CONTROL_CODE(1),
  /* In: a GateAnswer and `size` reply bytes. */
  gateAnswer = GATE_CONTROL_CODE(2),
  /* In: the bytes of one command for the guest's receive. */
  gatePush = GATE_CONTROL_CODE(3),
  /* In: a GateFault. */
  gateFault = GATE_CONTROL_CODE(4),
  /* In: uint32_t, 0 takes the guest device's name away, anything else gives it back. */
  gatePresent = GATE_CONTROL_CODE(5),
  /* Out: GateCounts and, after it, the breaches: NUL-terminated texts, `breachBytes` in all. */
  gateCounts = GATE_CONTROL_CODE(6),
  /* Waits until a receive is outstanding with no command and no receive fault left for it. */
  gateAwaitIdle = GATE_CONTROL_CODE(7),
};

enum { gateRoom = 65536 }; /* bytes of the output of a fetch and of the counts */

/* Where an image says where its PE header is, and where in that header its time stamp is, which the linker
   makes a hash of the image. */
enum { gateImageHeaderAt = 0x3C, gateStampAt = 8 };

struct GateEvent {
  uint32_t id;   /* 0: nothing to answer, fetch again (a receive that was to pend first now ends) */
  uint32_t size; /* envelope bytes that follow */
};

struct GateAnswer {
  uint32_t id; /* of the event; a request that has gone meanwhile is no error */
  uint32_t status;
  uint32_t returned;
  uint32_t size; /* reply bytes that follow */
};

struct GateFault {
  uint32_t request;
  int32_t ntStatus; /* other than 0: the control call fails with it */
  uint32_t status;
  uint32_t pendFirst;
};

struct GateCounts {
  uint64_t opens;
  uint64_t closes;
  uint64_t receives;
  uint64_t sends;
  uint64_t cancelled;
  uint64_t breachBytes;
};
