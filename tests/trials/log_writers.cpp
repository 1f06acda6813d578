// The log under many processes with many threads each, while another process takes its file away again and
// again. Whatever is taken away is kept under another name, so that the lines in it can be counted.
#include <fcntl.h>
#include <platform/control.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <fstream>
#include <optional>
#include <set>
#include <stdexcept>
#include <thread>

#include "log/log.h"
#include "trials/dice.h"
#include "trials/guest_room.h"
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

// What the processes share.
struct Progress {
  std::atomic<std::size_t> writing{processes};
};

fs::path Primary() {
  return platform::GuestRoot() / "Windows" / "Logs" / "tessarine.log";
}
fs::path Fallback() {
  return platform::GuestRoot() / "Users" / "guest" / "AppData" / "Local" / "tessarine.log";
}
fs::path Kept() {
  return platform::GuestRoot() / "kept";
}

// In local time, as the lines have it.
std::size_t SecondOfHour() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  return static_cast<std::size_t>(local.tm_min) * 60 + static_cast<std::size_t>(local.tm_sec);
}

// The message tells who wrote it and how it goes on.
std::string Message(std::size_t process, std::size_t thread, std::size_t line) {
  const std::size_t length = line % 97 == 0 ? 5000 : line % 89 == 0 ? 3000 : line * 7919 % 300;
  const auto letter = static_cast<char>('a' + (process * threads + thread) % 26);
  return std::to_string(process) + " " + std::to_string(thread) + " " + std::to_string(line) + " " +
         std::string(length, letter) + ".";
}

// The log looks for its file in each new second, so that is when everybody writes.
void AwaitNextSecond(Dice& dice) {
  const auto soon = std::chrono::system_clock::now() + earliest;
  std::this_thread::sleep_until(std::chrono::ceil<std::chrono::seconds>(soon) -
                                earliest * dice.Below(1000) / 1000);
}

void Write(std::size_t process, std::size_t thread, const Options& options) {
  Dice dice(options.seed, process * threads + thread);
  for (std::size_t line = 0; line < fullLines / options.every; ++line) {
    if (line % burst == 0) AwaitNextSecond(dice);
    WriteLog("TEST", "Writers", 1, "%s", Message(process, thread, line).c_str());
  }
}

void WriteAll(std::size_t process, const Options& options) {
  std::vector<std::thread> all;
  for (std::size_t thread = 0; thread < threads; ++thread) {
    all.emplace_back([=, &options] { Write(process, thread, options); });
  }
  for (std::thread& thread : all) thread.join();
  if (platform::Census() != std::map<std::string, std::size_t>{{"file", 1}}) {
    throw std::runtime_error("a writer has other than one file open at its end");
  }
}

// Moves the file away, deletes it, or puts an empty one in its place.
void TakeAway(Report& report, const Progress& progress, const Options& options) {
  Dice dice(options.seed, processes * threads);
  const fs::path path = Primary(), fresh = Kept() / "fresh";
  std::size_t taken = 0;
  const auto end = std::chrono::steady_clock::now() + 10min;
  while (progress.writing != 0 && std::chrono::steady_clock::now() < end) {
    report.Trial("the log's file is taken away");
    std::this_thread::sleep_for(1ms * (dice.Chance(50) ? dice.Below(5) : dice.Below(300)));
    const fs::path kept = Kept() / (std::to_string(SecondOfHour()) + "." + std::to_string(taken));
    if (dice.Chance(30)) {
      if (rename(path.c_str(), kept.c_str()) != 0) continue;
    } else {
      if (link(path.c_str(), kept.c_str()) != 0) continue;
      if (dice.Chance(50)) {
        unlink(path.c_str());
      } else {
        std::ofstream(fresh).flush();
        rename(fresh.c_str(), path.c_str());
      }
    }
    ++taken;
  }
  report.Count("files taken away", taken);
}

// One file of the log: every line whole, and those of a thread in the order in which it wrote them.
class Reader {
 public:
  explicit Reader(std::size_t lines) : seen_(processes * threads, std::vector<bool>(lines)) {}

  void Read(const fs::path& path) {
    // A file that was taken away is named after the second in which it was.
    taken_ = path == Primary() ? std::nullopt : std::optional(std::stoul(path.filename().string()));
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !files_.insert(status.st_ino).second) return;
    std::vector<std::size_t> next(processes * threads);
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    if (!bytes.empty() && bytes.back() != '\n')
      throw std::runtime_error(path.string() + ": ends within a line");
    for (std::size_t start = 0; start < bytes.size();) {
      const std::size_t end = bytes.find('\n', start);
      Take(bytes.substr(start, end - start), next);
      start = end + 1;
    }
  }

  std::size_t lines() const { return lines_; }
  std::size_t files() const { return files_.size(); }
  std::size_t lost() const {
    std::size_t lost = 0;
    for (const auto& lines : seen_)
      lost += static_cast<std::size_t>(std::count(lines.begin(), lines.end(), false));
    return lost;
  }

 private:
  // "MM-DD hh:mm:ss.mmm W /Writers:PID:TID/ [TEST] " and the message.
  void Take(const std::string& line, std::vector<std::size_t>& next) {
    const std::string tag = "/ [TEST] ";
    const std::size_t tagAt = line.find(tag);
    std::size_t process = 0, thread = 0, number = 0;
    unsigned month = 0, day = 0, hour = 0, minute = 0, second = 0, fraction = 0, pid = 0, tid = 0;
    int head = 0;
    if (tagAt == std::string::npos ||
        std::sscanf(line.c_str(), "%2u-%2u %2u:%2u:%2u.%3u W /Writers:%u:%x%n", &month, &day, &hour, &minute,
                    &second, &fraction, &pid, &tid, &head) != 8 ||
        static_cast<std::size_t>(head) != tagAt ||
        std::sscanf(line.c_str() + tagAt + tag.size(), "%zu %zu %zu", &process, &thread, &number) != 3 ||
        process >= processes || thread >= threads || number >= seen_[0].size()) {
      throw std::runtime_error("no line of ours: " + line.substr(0, 200));
    }
    const std::string whole = line.substr(0, tagAt + tag.size()) + Message(process, thread, number);
    if (line != whole.substr(0, longestLine)) throw std::runtime_error("not whole: " + line.substr(0, 200));
    const std::size_t late = taken_ ? (minute * 60 + second + hourSeconds - *taken_) % hourSeconds : 0;
    if (late > latest && late < hourSeconds / 2) {
      throw std::runtime_error("in a file that went " + std::to_string(late) +
                               " s before: " + line.substr(0, 200));
    }
    const std::size_t writer = process * threads + thread;
    if (seen_[writer][number]) throw std::runtime_error("twice: " + line.substr(0, 200));
    if (number < next[writer]) throw std::runtime_error("out of order: " + line.substr(0, 200));
    next[writer] = number + 1;
    seen_[writer][number] = true;
    ++lines_;
  }

  std::vector<std::vector<bool>> seen_;  // by writer
  std::optional<std::size_t> taken_;     // when the file that is read went
  std::set<ino_t> files_;
  std::size_t lines_ = 0;
};

void ReadAll(Report& report, const Options& options) {
  Reader reader(fullLines / options.every);
  Try(report, "the lines of the log", [&] {
    for (const auto& file : fs::directory_iterator(Kept())) reader.Read(file.path());
    reader.Read(Primary());
    report.Count("lines in the log", reader.lines());
    report.Count("files that held them", reader.files());
    if (reader.lost() != 0) throw std::runtime_error(std::to_string(reader.lost()) + " lines are lost");
    if (fs::exists(Fallback())) throw std::runtime_error("the log has moved to the fallback");
  });
}

}  // namespace

Tally TryLog(const Options& options) {
  const fs::path driveC = options.folder / "log";
  fs::remove_all(driveC);
  platform::SetGuestRoot(driveC);
  fs::create_directories(Kept());
  void* memory = mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::runtime_error("no memory that processes share");
  auto* progress = new (memory) Progress;
  Tally sum = RunCrew(processes + 1, [&](std::size_t job, Report& report) {
    if (job == processes) return TakeAway(report, *progress, options);
    Try(report, "writer " + std::to_string(job), [&] { WriteAll(job, options); });
    --progress->writing;
  });
  Add(sum, RunCrew(1, [&](std::size_t, Report& report) { ReadAll(report, options); }));
  munmap(memory, sizeof(Progress));
  return sum;
}

}  // namespace trials
