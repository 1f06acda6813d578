// Runs a piece of a test in a process of its own: for what a process decides once and keeps until its end,
// such as the place of the log and its open file. The failures of the piece fail the test here, which shows
// their texts as the process' message.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>

// The process begins the test anew, fixture included, and ends after `body`; only there does `body` run.
template <class Body>
void InOwnProcess(Body body) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        body();
        const bool failed = ::testing::Test::HasFailure();
        const auto& result = *::testing::UnitTest::GetInstance()->current_test_info()->result();
        for (int i = 0; i < result.total_part_count(); ++i) {
          const ::testing::TestPartResult& part = result.GetTestPartResult(i);
          std::cerr << part.file_name() << ":" << part.line_number() << ": " << part.message() << std::endl;
        }
        // The fixture's end, which cleans up, is not reached.
        const std::string guest = "velomira-" + std::to_string(GetCurrentProcessId());
        if (!failed) std::filesystem::remove_all(std::filesystem::temp_directory_path() / guest);
        std::exit(failed ? 1 : 0);
      },
      ::testing::ExitedWithCode(0), "");
}
