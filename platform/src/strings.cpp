// Conversion between UTF-8 and UTF-16 in the shape of the platform's calls, and lower-casing.
// A length of -1 means NUL-terminated text, and the NUL is then converted as well.
#include <clocale>
#include <cwctype>

#include "layer.h"

namespace platform {
namespace {

int Fail(DWORD error) {
  SetLastError(error);
  return 0;
}

template <class From, class To, class Conversion>
int Convert(const From* text, int length, To* target, int size, Conversion conversion) {
  if (!text || length == 0 || size < 0 || (size > 0 && !target)) return Fail(ERROR_INVALID_PARAMETER);
  const std::size_t units =
      length < 0 ? std::char_traits<From>::length(text) + 1 : static_cast<unsigned>(length);
  const std::basic_string<To> converted = conversion({text, units});
  const int needed = static_cast<int>(converted.size());
  if (size == 0) return needed;
  if (size < needed) return Fail(ERROR_INSUFFICIENT_BUFFER);
  converted.copy(target, converted.size());
  return needed;
}

}  // namespace
}  // namespace platform

using namespace platform;

int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length, LPWSTR wide,
                               int wideSize) {
  if (CallFails("MultiByteToWideChar", ERROR_INSUFFICIENT_BUFFER)) return 0;
  if (codePage != CP_UTF8) Unsupported("MultiByteToWideChar", "code page");
  if (flags != 0) Unsupported("MultiByteToWideChar", "flags");
  return Convert(text, length, wide, wideSize, ToUtf16);
}

int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int wideLength, LPSTR text, int size,
                               LPCSTR defaultChar, BOOL* usedDefaultChar) {
  if (CallFails("WideCharToMultiByte", ERROR_INSUFFICIENT_BUFFER)) return 0;
  if (codePage != CP_UTF8) Unsupported("WideCharToMultiByte", "code page");
  if (flags != 0 || defaultChar != nullptr || usedDefaultChar != nullptr) {
    Unsupported("WideCharToMultiByte", "flags or a default character");
  }
  return Convert(wide, wideLength, text, size, ToUtf8);
}

LPWSTR WINAPI CharLowerW(LPWSTR text) {
  CallPasses("CharLowerW");
  if (IS_INTRESOURCE(text)) Unsupported("CharLowerW", "a single character");
  static const locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  for (LPWSTR unit = text; *unit != 0; ++unit) *unit = static_cast<WCHAR>(towlower_l(*unit, unicode));
  return text;
}
