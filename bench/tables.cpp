#include "tables.h"

#include <malloc.h>
#include <platform/control.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <new>
#include <set>

#include "guest.h"
#include "host/session.h"

namespace {
// While `counting`, of this thread: bytes that operator new has given and not got back, and the most there
// have been.
bool counting = false;
thread_local std::ptrdiff_t held = 0, most = 0;

void Count(std::ptrdiff_t bytes) {
  held += bytes;
  most = std::max(most, held);
}
}  // namespace

void* operator new(std::size_t size) {
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  if (counting) Count(static_cast<std::ptrdiff_t>(malloc_usable_size(memory)));
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  if (counting) Count(-static_cast<std::ptrdiff_t>(malloc_usable_size(memory)));
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  operator delete(memory);
}

namespace bench {
namespace {

using Counts = std::map<std::string, std::size_t>;

// The platform calls of each work, by function.
std::map<Work, Counts> CallsOf(std::size_t count, std::size_t foreignClasses, bool straight) {
  const Guest guest(foreignClasses);
  Mirror mirror(count);
  std::map<Work, Counts> calls;
  for (const Work work : allWork) {
    mirror.Share(work);
    platform::ResetCallCounts();
    mirror.Run(work, straight);
    calls[work] = platform::CallCounts();
  }
  return calls;
}

double Sum(const Counts& counts) {
  double sum = 0;
  for (const auto& [function, count] : counts) sum += static_cast<double>(count);
  return sum;
}

}  // namespace

void PrintCalls() {
  constexpr std::size_t sizes[] = {10, 100, 1000, 2000};
  std::cout << "| guest, work | without applications | 10 | 100 | 1,000 | 2,000 | 2,000 / 10 | straight "
               "line, 100 |\n"
               "|---|---|---|---|---|---|---|---|\n";
  for (const std::size_t foreign : {std::size_t{0}, std::size_t{20000}}) {
    auto none = CallsOf(0, foreign, false), straight = CallsOf(100, foreign, true);
    std::map<std::size_t, std::map<Work, Counts>> all;
    for (const std::size_t size : sizes) all[size] = CallsOf(size, foreign, false);
    for (const Work work : allWork) {
      const double alone = Sum(none[work]);
      const auto each = [&](const Counts& counts, std::size_t size) {
        return (Sum(counts) - alone) / static_cast<double>(size);
      };
      std::printf("| %s, %s | %.0f |", foreign == 0 ? "empty" : "20,000 foreign classes", NameOf(work),
                  alone);
      for (const std::size_t size : sizes) std::printf(" %.3f |", each(all[size][work], size));
      std::printf(" %.4f | %.3f |\n", each(all[2000][work], 2000) / each(all[10][work], 10),
                  each(straight[work], 100));
    }
  }
}

void PrintFunctions() {
  auto made = CallsOf(110, 0, false), before = CallsOf(100, 0, false);
  auto prescribed = CallsOf(110, 0, true), prescribedBefore = CallsOf(100, 0, true);
  std::set<std::string> functions;
  for (const Work work : allWork) {
    for (const auto* counts : {&made[work], &prescribed[work]})
      for (const auto& [function, count] : *counts) functions.insert(function);
  }
  std::cout << "| function |";
  for (const Work work : allWork) std::cout << ' ' << NameOf(work) << " |";
  std::cout << "\n|---|---|---|---|---|\n";
  for (const std::string& function : functions) {
    std::cout << "| `" << function << "` |";
    for (const Work work : allWork) {
      const auto ten = [&](std::map<Work, Counts>& more, std::map<Work, Counts>& less) {
        return static_cast<double>(more[work][function] - less[work][function]) / 10;
      };
      const double wanted = ten(prescribed, prescribedBefore), is = ten(made, before);
      std::cout << ' ' << wanted;
      if (is != wanted) std::cout << " (made: " << is << ')';
      std::cout << " |";
    }
    std::cout << '\n';
  }
}

void PrintMemory() {
  std::cout << "| work | 10 applications | 2,000 applications |\n|---|---|---|\n";
  std::map<Work, std::string> rows;
  for (const std::size_t size : {10, 2000}) {
    const Guest guest;
    Mirror mirror(size);
    for (const Work work : allWork) {
      mirror.Share(work);
      held = most = 0;
      counting = true;
      mirror.Run(work, false);
      counting = false;
      rows[work] += " " + std::to_string(most / 1024) + " KB |";
    }
  }
  for (const Work work : {Work::Unchanged, Work::Withdrawal})
    std::cout << "| " << NameOf(work) << " |" << rows[work] << '\n';
}

namespace {

// Of all threads but this one: times that they were switched to, and clock ticks that they ran.
std::pair<std::size_t, std::size_t> Activity() {
  std::size_t switches = 0, ticks = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    if (task.path().filename() == std::to_string(getpid())) continue;
    std::ifstream status(task.path() / "status"), stat(task.path() / "stat");
    for (std::string word; status >> word;) {
      std::size_t count = 0;
      if (word.find("ctxt_switches:") != std::string::npos && status >> count) switches += count;
    }
    std::string word;
    for (int field = 1; field <= 15 && stat >> word; ++field)
      if (field >= 14) ticks += std::stoul(word);
  }
  return {switches, ticks};
}

}  // namespace

void PrintSleep(unsigned seconds) {
  const Guest guest;
  host::Session session(host::DefaultModule(), std::chrono::seconds(10));
  session.Start();
  sleep(1);  // until the announcement's thread is gone
  const auto [switches, ticks] = Activity();
  sleep(seconds);
  const auto [switchesThen, ticksThen] = Activity();
  std::printf("In %u s a sleeping worker woke up %zu times and ran %zu ms.\n", seconds,
              switchesThen - switches,
              (ticksThen - ticks) * 1000 / static_cast<std::size_t>(sysconf(_SC_CLK_TCK)));
  session.Stop();
}

}  // namespace bench
