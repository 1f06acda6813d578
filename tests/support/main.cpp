// The test program's start, and its watchdog: a test that hangs ends the program with its name, instead of
// leaving a silent time-out behind.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

namespace {

constexpr std::chrono::seconds longestTest{120};

class Watchdog : public ::testing::EmptyTestEventListener {
 public:
  Watchdog() : thread_([this] { Watch(); }) {}
  ~Watchdog() override {
    {
      std::lock_guard lock(mutex_);
      over_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }

  void OnTestStart(const ::testing::TestInfo& test) override {
    Enter(std::string(test.test_suite_name()) + "." + test.name());
  }
  void OnTestEnd(const ::testing::TestInfo&) override { Enter({}); }

 private:
  void Enter(std::string test) {
    std::lock_guard lock(mutex_);
    test_ = std::move(test);
    ++generation_;
    changed_.notify_all();
  }

  void Watch() {
    std::unique_lock lock(mutex_);
    while (!over_) {
      const auto seen = generation_;
      const bool moved = changed_.wait_for(lock, longestTest, [&] { return over_ || generation_ != seen; });
      if (moved || test_.empty()) continue;
      std::fprintf(stderr, "hangs: %s\n", test_.c_str());
      std::abort();
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::string test_;
  unsigned generation_ = 0;
  bool over_ = false;
  std::thread thread_;
};

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  ::testing::UnitTest::GetInstance()->listeners().Append(new Watchdog);
  return RUN_ALL_TESTS();
}
