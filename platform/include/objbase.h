// Components: initialisation by thread, creation, and the interfaces that every object has. The interfaces
// here and in shobjidl.h declare only the methods that are called; nobody outside the layer implements them.
#pragma once

#include <windef.h>
#include <winerror.h>

#define CLSCTX_INPROC_SERVER 0x1u

inline constexpr IID IID_IUnknown{0, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr IID IID_IPersistFile{0x10B, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

struct IUnknown {
  virtual HRESULT QueryInterface(REFIID iid, void** object) = 0;
  virtual ULONG AddRef() = 0;
  virtual ULONG Release() = 0;

 protected:
  ~IUnknown() = default;
};

struct IPersistFile : IUnknown {
  virtual HRESULT Load(LPCWSTR name, DWORD mode) = 0;
  virtual HRESULT Save(LPCWSTR name, BOOL remember) = 0;

 protected:
  ~IPersistFile() = default;
};

HRESULT WINAPI CoInitialize(LPVOID reserved);
void WINAPI CoUninitialize();
HRESULT WINAPI CoCreateInstance(const CLSID& classId, IUnknown* outer, DWORD context, REFIID iid,
                                LPVOID* object);
