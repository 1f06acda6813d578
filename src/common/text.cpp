// Conversion between UTF-8 and UTF-16 with the platform's own tables: a size query, then the conversion.
#include "common/text.h"

namespace {

class KeepLastError {
 public:
  KeepLastError() : error_(GetLastError()) {}
  ~KeepLastError() { SetLastError(error_); }
  KeepLastError(const KeepLastError&) = delete;
  KeepLastError& operator=(const KeepLastError&) = delete;

 private:
  DWORD error_;
};

}  // namespace

WideString Utf8ToWide(std::string_view text) {
  const KeepLastError keep;
  const int length = static_cast<int>(text.size());
  const int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
  if (size <= 0) return {};
  WideString wide(static_cast<std::size_t>(size), 0);
  if (MultiByteToWideChar(CP_UTF8, 0, text.data(), length, wide.data(), size) <= 0) return {};
  return wide;
}

std::string WideToUtf8(WideView text) {
  const KeepLastError keep;
  const int length = static_cast<int>(text.size());
  const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  if (size <= 0) return {};
  std::string utf8(static_cast<std::size_t>(size), '\0');
  if (WideCharToMultiByte(CP_UTF8, 0, text.data(), length, utf8.data(), size, nullptr, nullptr) <= 0)
    return {};
  return utf8;
}

WideString AsciiLower(WideString text) {
  for (WCHAR& c : text) {
    if (c >= TEXT('A') && c <= TEXT('Z')) c = static_cast<WCHAR>(c + 32);
  }
  return text;
}
