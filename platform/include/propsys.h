// Property keys and stores.
#pragma once

#include <objbase.h>
#include <propidl.h>

struct PROPERTYKEY {
  GUID fmtid;
  DWORD pid;
};
using REFPROPERTYKEY = const PROPERTYKEY&;

inline constexpr IID IID_IPropertyStore{
    0x886D8EEB, 0x8CF2, 0x4446, {0x8D, 0x02, 0xCD, 0xBA, 0x1D, 0xBD, 0xCF, 0x99}};

struct IPropertyStore : IUnknown {
  virtual HRESULT GetValue(REFPROPERTYKEY key, PROPVARIANT* value) = 0;
  virtual HRESULT SetValue(REFPROPERTYKEY key, const PROPVARIANT& value) = 0;
  virtual HRESULT Commit() = 0;

 protected:
  ~IPropertyStore() = default;
};
