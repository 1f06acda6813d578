// Forming of log lines. The level's names are letters for 0 to 4 after its reduction modulo 16.
#include "log/log.h"

#include <windows.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <string_view>

#include "log/log_file.h"

namespace {

constexpr std::size_t bufferSize = 4096;
constexpr std::size_t longestText = 4094;  // without the newline

class Line {
 public:
  [[gnu::format(printf, 2, 3)]] void Add(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    AddList(format, arguments);
    va_end(arguments);
  }

  // What does not fit is cut.
  [[gnu::format(printf, 2, 0)]] void AddList(const char* format, va_list arguments) {
    const int length = std::vsnprintf(text_ + length_, bufferSize - length_, format, arguments);
    if (length > 0) length_ = std::min(length_ + static_cast<std::size_t>(length), bufferSize - 1);
  }

  std::string_view End() {
    length_ = std::min(length_, longestText);
    text_[length_++] = '\n';
    return {text_, length_};
  }

 private:
  char text_[bufferSize];
  std::size_t length_ = 0;
};

void AddLevel(Line& line, std::int32_t level) {
  const std::int32_t reduced = level % 16;
  if (reduced >= 0 && reduced <= 4) {
    line.Add("%c ", "FWIDT"[reduced]);
  } else {
    line.Add("O(%d) ", reduced);
  }
}

}  // namespace

void WriteLog(const char* tag, const char* component, std::int32_t level, const char* format, ...) noexcept {
  const DWORD lastError = GetLastError();
  SYSTEMTIME now;
  GetLocalTime(&now);
  Line line;
  line.Add("%02d-%02d %02d:%02d:%02d.%03d ", now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond,
           now.wMilliseconds);
  AddLevel(line, level);
  line.Add("/%s:%u:%x/ ", component, static_cast<unsigned>(GetCurrentProcessId()),
           static_cast<unsigned>(GetCurrentThreadId()));
  line.Add("[%s] ", tag);
  va_list arguments;
  va_start(arguments, format);
  line.AddList(format, arguments);
  va_end(arguments);
  AppendToLog(line.End());
  SetLastError(lastError);
}
