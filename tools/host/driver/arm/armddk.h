/* What the driver kit's headers take from here on Arm, as far as the driver double needs it: they have it for
   other processors only. */
#pragma once

typedef ULONG PFN_COUNT;
typedef ULONG_PTR PFN_NUMBER, *PPFN_NUMBER;

#define InterlockedExchangePointer _InterlockedExchangePointer
