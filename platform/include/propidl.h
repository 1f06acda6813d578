// Property values. Only the types that are stored in links are declared.
#pragma once

#include <windef.h>

using VARIANT_BOOL = SHORT;

#define VT_EMPTY 0
#define VT_BOOL 11
#define VT_UI4 19
#define VARIANT_TRUE (static_cast<VARIANT_BOOL>(-1))

struct PROPVARIANT {
  WORD vt;
  union {
    ULONG ulVal;
    VARIANT_BOOL boolVal;
  };
};
