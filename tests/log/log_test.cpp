// The lines of the log, to the byte, and what writing one leaves alone. The log's place and its open file
// belong to the process, so every test has one of its own.
#include "log/log.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <vector>

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

  // The whole log.
  static std::string Text() {
    const HANDLE file =
        CreateFileW(Path().c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return "no log";
    std::string text(65536, '\0');  // room for all that a test writes
    DWORD read = 0;
    EXPECT_TRUE(ReadFile(file, text.data(), static_cast<DWORD>(text.size()), &read, nullptr));
    EXPECT_LT(read, text.size());
    text.resize(read);
    CloseHandle(file);
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
    WriteLog("VELO", "Velomira", 1, "Wait failed! Error %d", 6);
    EXPECT_EQ(GetLastError(), DWORD{1234});
    const std::string after = Now(), text = Text();
    ASSERT_GT(text.size(), timeSize);
    EXPECT_EQ(before.size(), timeSize);
    EXPECT_LE(before, text.substr(0, timeSize));
    EXPECT_GE(after, text.substr(0, timeSize));
    char rest[128];
    std::snprintf(rest, sizeof rest, "W /Velomira:%lu:%lx/ [VELO] Wait failed! Error 6\n",
                  static_cast<unsigned long>(GetCurrentProcessId()),
                  static_cast<unsigned long>(GetCurrentThreadId()));
    EXPECT_EQ(text.substr(timeSize), rest);
  });
}

TEST_F(Log, LevelsAreNamedByTheirRemainderOfSixteen) {
  InOwnProcess([] {
    const std::pair<int, const char*> cases[] = {{0, "F "},
                                                 {1, "W "},
                                                 {2, "I "},
                                                 {3, "D "},
                                                 {4, "T "},
                                                 {5, "O(5) "},
                                                 {16, "F "},
                                                 {-1, "O(-1) "},
                                                 {-17, "O(-1) "},
                                                 {2147483647, "O(15) "},
                                                 {-2147483647 - 1, "F "}};
    for (const auto& [level, name] : cases) WriteLog("T", "C", level, "%d", level);
    const std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), std::size(cases));
    for (std::size_t i = 0; i < lines.size(); ++i) {
      EXPECT_EQ(lines[i].substr(timeSize), Origin(cases[i].second) + std::to_string(cases[i].first));
    }
  });
}

TEST_F(Log, ALineIsCutToFitWithItsNewline) {
  InOwnProcess([] {
    const std::size_t head = timeSize + Origin("W ").size(), longest = 4094;
    struct Case {
      std::size_t message, text;
    };
    const Case cases[] = {
        {longest - head - 1, longest - 1}, {longest - head, longest}, {longest - head + 1, longest},
        {longest - head + 2, longest},     {5000, longest},           {0, head}};
    for (const Case& c : cases) WriteLog("T", "C", 1, "%s", std::string(c.message, 'm').c_str());
    const std::string wide(5000, 'c');
    WriteLog("T", wide.c_str(), 1, "gone");
    WriteLog(wide.c_str(), "C", 1, "gone");
    WriteLog("%n%s", "%s", 1, "%s", "%d");
    EXPECT_TRUE(Text().ends_with('\n'));
    const std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), std::size(cases) + 3);
    for (std::size_t i = 0; i < std::size(cases); ++i) {
      EXPECT_EQ(lines[i].size(), cases[i].text) << i;
      EXPECT_EQ(lines[i].substr(timeSize), Origin("W ") + std::string(cases[i].text - head, 'm'));
    }
    EXPECT_EQ(lines[6].size(), longest);
    EXPECT_EQ(lines[6].substr(timeSize, 6), "W /ccc");
    EXPECT_EQ(lines[7].size(), longest);
    EXPECT_TRUE(lines[7].ends_with("ccc"));
    EXPECT_NE(lines[8].find("W /%s:"), std::string::npos);
    EXPECT_TRUE(lines[8].ends_with("/ [%n%s] %d")) << lines[8];
  });
}

}  // namespace
