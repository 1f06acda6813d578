// The lines of the log, to the byte, and what writing one leaves alone. The log's place and its open file
// belong to the process, so every test has one of its own.
#include "log/log.h"

#include <cstdio>
#include <sstream>
#include <vector>

#include "common/handles.h"
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
  // The whole log. It is shared for all that others may want of it, deletion among it.
  static std::string Text() {
    const UniqueFile file(CreateFileW(Path().c_str(), GENERIC_READ | GENERIC_WRITE | DELETE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    std::string text(65536, '\0');  // room for all that a test writes
    DWORD read = 0;
    EXPECT_TRUE(ReadFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &read, nullptr));
    text.resize(read);
    return text;
  }
  static std::vector<std::string> Lines() {
    std::istringstream text(Text());
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
  }

  // What stands between the time and the message, for this thread.
  static std::string Origin(const std::string& level) {
    char origin[64];
    std::snprintf(origin, sizeof origin, "%s/C:%lu:%lx/ [T] ", level.c_str(),
                  static_cast<unsigned long>(GetCurrentProcessId()),
                  static_cast<unsigned long>(GetCurrentThreadId()));
    return origin;
  }
  static std::string Now() {
    SYSTEMTIME now;
    GetLocalTime(&now);
    char text[64];
    std::snprintf(text, sizeof text, "%02d-%02d %02d:%02d:%02d.%03d ", now.wMonth, now.wDay, now.wHour,
                  now.wMinute, now.wSecond, now.wMilliseconds);
    return text;
  }

  static constexpr std::size_t timeSize = 19;
};

TEST_F(Log, ALineHasItsPartsAndLeavesTheLastErrorAsItWas) {
  InOwnProcess([] {
    const std::string before = Now();
    SetLastError(1234);
    WriteLog("T", "C", 1, "Wait failed! Error %d", 6);
    EXPECT_EQ(GetLastError(), DWORD{1234});
    const std::string after = Now(), text = Text();
    EXPECT_EQ(before.size(), timeSize);
    EXPECT_LE(before, text.substr(0, timeSize));
    EXPECT_GE(after, text.substr(0, timeSize));
    EXPECT_EQ(text.substr(timeSize), Origin("W ") + "Wait failed! Error 6\n");
  });
}

TEST_F(Log, LevelsAreNamedByTheirRemainderOfSixteen) {
  InOwnProcess([] {
    const int levels[] = {0, 1, 2, 3, 4, 5, 16, -1, -17, 2147483647, -2147483647 - 1};
    const char* names[] = {"F ", "W ", "I ", "D ", "T ", "O(5) ", "F ", "O(-1) ", "O(-1) ", "O(15) ", "F "};
    for (const int level : levels) WriteLog("T", "C", level, "%d", level);
    const std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), std::size(levels));
    for (std::size_t i = 0; i < lines.size(); ++i) {
      EXPECT_EQ(lines[i].substr(timeSize), Origin(names[i]) + std::to_string(levels[i]));
    }
  });
}

TEST_F(Log, ALineIsCutToFitWithItsNewline) {
  InOwnProcess([] {
    const std::size_t head = timeSize + Origin("W ").size(), longest = 4094;
    const std::size_t messages[] = {longest - head - 1, longest - head, longest - head + 1, 5000, 0};
    for (const std::size_t size : messages) WriteLog("T", "C", 1, "%s", std::string(size, 'm').c_str());
    const std::string wide(5000, 'c');
    WriteLog("T", wide.c_str(), 1, "gone");
    WriteLog(wide.c_str(), "C", 1, "gone");
    WriteLog("%n%s", "%s", 1, "%s", "%d");
    const std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), std::size(messages) + 3);
    for (std::size_t i = 0; i < std::size(messages); ++i) {
      EXPECT_EQ(lines[i].substr(timeSize),
                Origin("W ") + std::string(std::min(messages[i], longest - head), 'm'));
    }
    EXPECT_EQ(lines[5].size(), longest);
    EXPECT_EQ(lines[5].substr(timeSize, 6), "W /ccc");
    EXPECT_EQ(lines[6].size(), longest);
    EXPECT_TRUE(lines[6].ends_with("ccc"));
    EXPECT_NE(lines[7].find("W /%s:"), std::string::npos);
    EXPECT_TRUE(lines[7].ends_with("/ [%n%s] %d")) << lines[7];
  });
}

}  // namespace
