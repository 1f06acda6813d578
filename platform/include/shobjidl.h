// The shell link object.
#pragma once

#include <fileapi.h>
#include <objbase.h>
#include <propsys.h>

inline constexpr CLSID CLSID_ShellLink{0x21401, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr IID IID_IShellLinkW{0x214F9, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

struct IShellLinkW : IUnknown {
  virtual HRESULT GetPath(LPWSTR path, int size, WIN32_FIND_DATAW* data, DWORD flags) = 0;
  virtual HRESULT GetDescription(LPWSTR text, int size) = 0;
  virtual HRESULT SetDescription(LPCWSTR text) = 0;
  virtual HRESULT SetPath(LPCWSTR path) = 0;

 protected:
  ~IShellLinkW() = default;
};
