// The log under many processes with many threads each, while another process takes its file away again and
// again. Whatever is taken away is kept under another name, so that the lines in it can be counted.
#include <platform/control.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <thread>

#include "log/log.h"
#include "trials/dice.h"
#include "trials/guest.h"
#include "trials/trials.h"

namespace trials {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr std::size_t processes = 8, threads = 4, fullLines = 4'000;  // lines a thread
constexpr std::size_t burst = 100;                                    // lines without a pause
constexpr auto earliest = 60ms;                                       // before a second ends, a burst begins
constexpr std::size_t longestLine = 4094;                             // what is longer is cut
constexpr std::size_t hourSeconds = 3600;
constexpr std::size_t latest =
    4;  // seconds until a file that went is no longer written to, on a busy machine

const std::string primary = "C:\\Windows\\Logs\\tessarine.log";
const std::string fallback = "C:\\Users\\guest\\AppData\\Local\\tessarine.log";
const std::string kept = "C:\\kept";

// In local time, as the lines have it.
std::size_t SecondOfHour() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  return static_cast<std::size_t>(local.tm_min) * 60 + static_cast<std::size_t>(local.tm_sec);
}

// The message tells who wrote it and how it goes on.
std::string Message(std::size_t writer, std::size_t line) {
  const std::size_t length = line % 97 == 0 ? 5000 : line % 89 == 0 ? 3000 : line * 7919 % 300;
  return std::to_string(writer) + " " + std::to_string(line) + " " +
         std::string(length, static_cast<char>('a' + writer % 26)) + ".";
}

void Write(std::size_t writer, const Options& options) {
  Dice dice(options.seed, writer);
  for (std::size_t line = 0; line < fullLines / options.every; ++line) {
    if (line % burst == 0) {
      // The log looks for its file in each new second, so that is when everybody writes.
      const auto next = std::chrono::ceil<std::chrono::seconds>(std::chrono::system_clock::now() + earliest);
      std::this_thread::sleep_until(next - earliest * dice.Below(1000) / 1000);
    }
    WriteLog("TEST", "Writers", 1, "%s", Message(writer, line).c_str());
  }
}

void WriteAll(std::size_t process, const Options& options) {
  std::vector<std::thread> all;
  for (std::size_t thread = 0; thread < threads; ++thread)
    all.emplace_back(Write, process * threads + thread, std::cref(options));
  for (std::thread& thread : all) thread.join();
  if (platform::Census() != std::map<std::string, std::size_t>{{"file", 1}})
    throw std::runtime_error("a writer has other than one file open at its end");
}

// Moves the file away, deletes it, or puts an empty one in its place. It is kept under the second it went in.
void TakeAway(Report& report, const std::atomic<std::size_t>& writing, const Options& options) {
  Dice dice(options.seed, processes * threads);
  const fs::path path = HostFile(primary), fresh = HostFile(kept + "\\fresh");
  std::size_t taken = 0;
  for (const auto end = std::chrono::steady_clock::now() + 10min;
       writing != 0 && std::chrono::steady_clock::now() < end;) {
    report.Trial("the log's file is taken away");
    std::this_thread::sleep_for(1ms * (dice.Chance(50) ? dice.Below(5) : dice.Below(300)));
    const fs::path to = HostFile(kept) / (std::to_string(SecondOfHour()) + "." + std::to_string(taken));
    const bool moves = dice.Chance(30);
    if ((moves ? rename(path.c_str(), to.c_str()) : link(path.c_str(), to.c_str())) != 0) continue;
    if (!moves && dice.Chance(50)) {
      unlink(path.c_str());
    } else if (!moves) {
      std::ofstream(fresh).flush();
      rename(fresh.c_str(), path.c_str());
    }
    ++taken;
  }
  report.Count("files taken away", taken);
}

// Finds every line whole and once, and those of a thread in the order in which it wrote them.
class Reader {
 public:
  explicit Reader(std::size_t lines) : seen_(processes * threads, std::vector<bool>(lines)) {}

  // `taken`: the second in which the file went.
  void Read(const fs::path& path, std::optional<std::size_t> taken) {
    std::vector<std::size_t> next(processes * threads);
    std::ifstream file(path, std::ios::binary);
    for (std::string line; std::getline(file, line); ++lines_) {
      if (file.eof()) Fail("not ended", line);
      Take(line, taken, next);
    }
  }

  std::size_t lines() const { return lines_; }

 private:
  [[noreturn]] static void Fail(const std::string& what, const std::string& line) {
    throw std::runtime_error(what + ": " + line.substr(0, 200));
  }

  // "MM-DD hh:mm:ss.mmm W /Writers:PID:TID/ [TEST] " and the message.
  void Take(const std::string& line, std::optional<std::size_t> taken, std::vector<std::size_t>& next) {
    std::size_t writer = 0, number = 0;
    unsigned minute = 0, second = 0;
    int head = 0;
    if (std::sscanf(line.c_str(), "%*2u-%*2u %*2u:%2u:%2u.%*3u W /Writers:%*u:%*x/ [TEST] %n%zu %zu", &minute,
                    &second, &head, &writer, &number) != 4 ||
        writer >= seen_.size() || number >= seen_[0].size()) {
      Fail("no line of ours", line);
    }
    const std::string whole = line.substr(0, static_cast<std::size_t>(head)) + Message(writer, number);
    if (line != whole.substr(0, longestLine)) Fail("not whole", line);
    const std::size_t late = taken ? (minute * 60 + second + hourSeconds - *taken) % hourSeconds : 0;
    if (late > latest && late < hourSeconds / 2)
      Fail("in a file that went " + std::to_string(late) + " s before", line);
    if (seen_[writer][number]) Fail("twice", line);
    if (number < next[writer]) Fail("out of order", line);
    next[writer] = number + 1;
    seen_[writer][number] = true;
  }

  std::vector<std::vector<bool>> seen_;  // by writer
  std::size_t lines_ = 0;
};

void ReadAll(Report& report, const Options& options) {
  const std::size_t lines = fullLines / options.every;
  Reader reader(lines);
  for (const auto& file : fs::directory_iterator(HostFile(kept)))
    reader.Read(file.path(), std::stoul(file.path().filename().string()));
  reader.Read(HostFile(primary), std::nullopt);
  report.Count("lines in the log", reader.lines());
  if (reader.lines() != lines * processes * threads) throw std::runtime_error("lines are lost");
  if (fs::exists(HostFile(fallback))) throw std::runtime_error("the log has moved to the fallback");
}

}  // namespace

Tally TryLog(const Options& options) {
  const fs::path driveC = options.folder / "log";
  fs::remove_all(driveC);
  platform::SetGuestRoot(driveC);
  fs::create_directories(HostFile(kept));
  using Count = std::atomic<std::size_t>;
  void* shared = mmap(nullptr, sizeof(Count), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) throw std::runtime_error("no memory that processes share");
  auto& writing = *new (shared) Count(processes);
  const Tally written = RunCrew(processes + 1, [&](std::size_t job, Report& report) {
    if (job == processes) return TakeAway(report, writing, options);
    report.Try("writer " + std::to_string(job), [&] { WriteAll(job, options); });
    --writing;
  });
  munmap(shared, sizeof(Count));
  return RunCrew(
      1,
      [&](std::size_t, Report& report) {
        report.Try("the lines of the log", [&] { ReadAll(report, options); });
      },
      written);
}

}  // namespace trials
