// The log under many processes with many threads each, while another process takes its file away again and
// again. Whatever is taken away is kept under another name, so that the lines in it can be counted.
#include <platform/control.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <fstream>
#include <iterator>
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
constexpr std::size_t latest = 4;  // seconds until a file that went is no longer written to

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

// Deletes the file, or puts an empty one in its place. It is kept under the second in which it went.
void TakeAway(Report& report, const std::atomic<std::size_t>& writing, const Options& options) {
  Dice dice(options.seed, processes * threads);
  const fs::path path = HostFile(primary), fresh = HostFile(kept + "\\fresh");
  std::size_t taken = 0;
  while (writing != 0) {
    std::this_thread::sleep_for(1ms * (dice.Chance(50) ? dice.Below(5) : dice.Below(300)));
    const std::string name = std::to_string(SecondOfHour()) + "." + std::to_string(taken);
    if (link(path.c_str(), (HostFile(kept) / name).c_str()) != 0) continue;
    ++taken;
    if (dice.Chance(50)) {
      unlink(path.c_str());
    } else {
      std::ofstream(fresh).flush();
      rename(fresh.c_str(), path.c_str());
    }
  }
  report.Count("files taken away", taken);
}

struct Line {
  std::string text;
  std::size_t writer = 0, number = 0, second = 0;  // of the hour
  void Require(bool holds, const std::string& otherwise) const {
    if (!holds) throw std::runtime_error(otherwise + ": " + text.substr(0, 200));
  }
};

// "MM-DD hh:mm:ss.mmm W /Writers:PID:TID/ [TEST] " and the message.
Line Parse(const std::string& text, std::size_t lines) {
  Line line{text};
  unsigned minute = 0, second = 0;
  int head = 0;
  const int found =
      std::sscanf(text.c_str(), "%*2u-%*2u %*2u:%2u:%2u.%*3u W /Writers:%*u:%*x/ [TEST] %n%zu %zu", &minute,
                  &second, &head, &line.writer, &line.number);
  line.Require(found == 4 && line.writer < processes * threads && line.number < lines, "no line of ours");
  const std::string whole =
      text.substr(0, static_cast<std::size_t>(head)) + Message(line.writer, line.number);
  line.Require(text == whole.substr(0, longestLine), "not whole");
  line.second = minute * 60 + second;
  return line;
}

// Every line is there whole and once, those of a thread in the order in which it wrote them.
void ReadAll(Report& report, const Options& options) {
  const std::size_t lines = fullLines / options.every;
  std::vector<std::vector<bool>> seen(processes * threads, std::vector<bool>(lines));
  std::vector<fs::path> files = {HostFile(primary)};
  std::ranges::copy(fs::directory_iterator(HostFile(kept)), std::back_inserter(files));
  std::size_t read = 0;
  for (const fs::path& path : files) {
    std::ifstream file(path, std::ios::binary);
    std::vector<std::size_t> next(seen.size());
    for (std::string text; std::getline(file, text); ++read) {
      const Line line = Parse(text, lines);
      line.Require(!file.eof(), "not ended");
      line.Require(!seen[line.writer][line.number], "twice");
      line.Require(line.number >= next[line.writer], "out of order");
      seen[line.writer][line.number] = true;
      next[line.writer] = line.number + 1;
      if (path == files[0]) continue;
      const std::size_t late =
          (line.second + hourSeconds - std::stoul(path.filename().string())) % hourSeconds;
      line.Require(late <= latest || late > hourSeconds / 2, "in a file that went long before");
    }
  }
  report.Count("lines in the log", read);
  if (read != lines * processes * threads) throw std::runtime_error("lines are lost");
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
  Tally tally = RunCrew(options.folder, processes + 1, [&](std::size_t job, Report& report) {
    if (job < processes) {
      report.Try("writer " + std::to_string(job), [&] { WriteAll(job, options); });
      --writing;
    } else {
      report.Trial("the log's file is taken away");
      TakeAway(report, writing, options);
      report.Try("the lines of the log", [&] { ReadAll(report, options); });
    }
  });
  munmap(shared, sizeof(Count));
  return tally;
}

}  // namespace trials
