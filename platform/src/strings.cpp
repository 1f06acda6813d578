// Conversion between UTF-8 and UTF-16 in the shape of the platform's calls, and lower-casing.
// A length of -1 means NUL-terminated text, and the NUL is then converted as well.
#include <clocale>
#include <cstring>
#include <cwctype>

#include "layer.h"

namespace platform {
namespace {

template <class Unit>
std::basic_string_view<Unit> Source(const Unit* text, int length) {
  return length < 0 ? std::basic_string_view<Unit>(text, std::char_traits<Unit>::length(text) + 1)
                    : std::basic_string_view<Unit>(text, static_cast<std::size_t>(length));
}

int Fail(DWORD error) {
  SetLastError(error);
  return 0;
}

template <class Unit>
int Deliver(const std::basic_string<Unit>& text, Unit* target, int size) {
  const int needed = static_cast<int>(text.size());
  if (size == 0) return needed;
  if (size < needed) return Fail(ERROR_INSUFFICIENT_BUFFER);
  std::memcpy(target, text.data(), text.size() * sizeof(Unit));
  return needed;
}

}  // namespace
}  // namespace platform

using namespace platform;

int WINAPI MultiByteToWideChar(UINT codePage, DWORD flags, LPCCH text, int length, LPWSTR wide,
                               int wideSize) {
  if (CallFails("MultiByteToWideChar", ERROR_INSUFFICIENT_BUFFER)) return 0;
  if (codePage != CP_UTF8) Unsupported("MultiByteToWideChar", "code page");
  if ((flags & ~MB_ERR_INVALID_CHARS) != 0) Unsupported("MultiByteToWideChar", "flags");
  if (text == nullptr || length == 0 || wideSize < 0 || (wideSize > 0 && wide == nullptr)) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  const auto source = Source(text, length);
  const std::u16string converted = ToUtf16(source);
  // Replacements do not survive the way back, so only well-formed text does.
  if (flags != 0 && ToUtf8(converted) != source) return Fail(ERROR_NO_UNICODE_TRANSLATION);
  return Deliver(converted, wide, wideSize);
}

int WINAPI WideCharToMultiByte(UINT codePage, DWORD flags, LPCWCH wide, int wideLength, LPSTR text, int size,
                               LPCCH defaultChar, LPBOOL usedDefaultChar) {
  if (CallFails("WideCharToMultiByte", ERROR_INSUFFICIENT_BUFFER)) return 0;
  if (codePage != CP_UTF8) Unsupported("WideCharToMultiByte", "code page");
  if ((flags & ~WC_ERR_INVALID_CHARS) != 0) Unsupported("WideCharToMultiByte", "flags");
  if (wide == nullptr || wideLength == 0 || size < 0 || (size > 0 && text == nullptr) ||
      defaultChar != nullptr || usedDefaultChar != nullptr) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  const auto source = Source(wide, wideLength);
  const std::string converted = ToUtf8(source);
  if (flags != 0 && ToUtf16(converted) != source) return Fail(ERROR_NO_UNICODE_TRANSLATION);
  return Deliver(converted, text, size);
}

LPWSTR WINAPI CharLowerW(LPWSTR text) {
  CallPasses("CharLowerW");
  if (IS_INTRESOURCE(text)) Unsupported("CharLowerW", "a single character");
  static const locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  for (LPWSTR unit = text; *unit != 0; ++unit) *unit = static_cast<WCHAR>(towlower_l(*unit, unicode));
  return text;
}
