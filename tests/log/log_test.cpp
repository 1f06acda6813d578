// The lines of the log, to the byte, and what writing one leaves alone. The log's place and its open file
// belong to the process, so every test has one of its own.
#include "log/log.h"

#include <cstdio>
#include <sstream>
#include <vector>

#include "common/handles.h"
#include "guest/guest_view.h"
#include "support/guest.h"
#include "support/own_process.h"

namespace {

class Log : public GuestTest {
 protected:
  void SetUp() override {
    GuestTest::SetUp();
    DeleteFileW(Path().c_str());
  }

  static WideString Path() {
    WCHAR folder[MAX_PATH];
    return WideString(folder, GetWindowsDirectoryW(folder, MAX_PATH)) + TEXT("\\Logs\\tessarine.log");
  }
  // The log's lines without their times. The log is shared for all that others may want, deletion among it.
  static std::vector<std::string> Lines() {
    EXPECT_TRUE(UniqueFile(CreateFileW(Path().c_str(), GENERIC_READ | GENERIC_WRITE | DELETE,
                                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                       OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)));
    std::istringstream text(host::ReadLog());
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) lines.push_back(line.substr(timeSize));
    return lines;
  }
  // What this thread's line must be, without its time.
  static std::string Line(const std::string& level, const std::string& message,
                          const std::string& component = "C", const std::string& tag = "T") {
    std::ostringstream line;
    line << level << " /" << component << ":" << GetCurrentProcessId() << ":" << std::hex
         << GetCurrentThreadId() << "/ [" << tag << "] " << message;
    return line.str().substr(0, longest);
  }
  static std::string Now() {
    SYSTEMTIME now;
    GetLocalTime(&now);
    char text[64];
    std::snprintf(text, sizeof text, "%02d-%02d %02d:%02d:%02d.%03d ", now.wMonth, now.wDay, now.wHour,
                  now.wMinute, now.wSecond, now.wMilliseconds);
    return text;
  }

  static constexpr std::size_t timeSize = 19, longest = 4094 - timeSize;
};

TEST_F(Log, ALineHasItsPartsAndLeavesTheLastErrorAsItWas) {
  InOwnProcess([] {
    const std::string before = Now();
    SetLastError(1234);
    WriteLog("T", "C", 1, "Wait failed! Error %d", 6);
    EXPECT_EQ(GetLastError(), DWORD{1234});
    const std::string after = Now(), text = host::ReadLog();
    EXPECT_LE(before, text.substr(0, timeSize));
    EXPECT_GE(after, text.substr(0, timeSize));
    EXPECT_EQ(text.substr(timeSize), Line("W", "Wait failed! Error 6\n"));
  });
}

TEST_F(Log, LevelsAreNamedByTheirRemainderOfSixteenAndLinesAreCutToFit) {
  InOwnProcess([] {
    std::vector<std::string> expected;
    const std::pair<int, const char*> levels[] = {{0, "F"},
                                                  {1, "W"},
                                                  {2, "I"},
                                                  {3, "D"},
                                                  {4, "T"},
                                                  {5, "O(5)"},
                                                  {16, "F"},
                                                  {-1, "O(-1)"},
                                                  {-17, "O(-1)"},
                                                  {2147483647, "O(15)"},
                                                  {-2147483647 - 1, "F"}};
    for (const auto& [level, name] : levels) {
      WriteLog("T", "C", level, "%d", level);
      expected.push_back(Line(name, std::to_string(level)));
    }
    const std::size_t room = longest - Line("W", "").size();
    for (const std::size_t size : {room - 1, room, room + 1, std::size_t{5000}, std::size_t{0}}) {
      WriteLog("T", "C", 1, "%s", std::string(size, 'm').c_str());
      expected.push_back(Line("W", std::string(size, 'm')));
    }
    const std::string wide(5000, 'c');
    WriteLog("T", wide.c_str(), 1, "gone");
    WriteLog(wide.c_str(), "C", 1, "gone");
    WriteLog("%n%s", "%s", 1, "%s", "%d");
    for (const std::string& line :
         {Line("W", "gone", wide), Line("W", "gone", "C", wide), Line("W", "%d", "%s", "%n%s")})
      expected.push_back(line);
    EXPECT_EQ(Lines(), expected);
  });
}

}  // namespace
