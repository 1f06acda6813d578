// The times, each beside its limit in the same run of the same loop, so that what disturbs one disturbs the
// other.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>

#include "applications.h"
#include "channel/mainfo.h"
#include "guest.h"
#include "launcher/bmp2ico.h"
#include "tables.h"
#include "xdt/bit_box/bit_box.h"

namespace {

// The processor's time, which a busy machine disturbs less than the clock on the wall; nothing here waits.
double Now() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

template <class Piece>
double Seconds(Piece piece) {
  const double start = Now();
  piece();
  return Now() - start;
}

// Runs both in turns, each first in every second turn; each answers the seconds of one run, which works on
// `units`.
template <class Ours, class Limit>
void Compare(benchmark::State& state, double units, Ours ours, Limit limit) {
  double our = 0, their = 0;
  bool limitFirst = false;
  for (auto _ : state) {
    if (limitFirst) their += limit();
    const double now = ours();
    if (!limitFirst) their += limit();
    limitFirst = !limitFirst;
    state.SetIterationTime(now);
    our += now;
  }
  const double nanoseconds = 1e9 / units / static_cast<double>(state.iterations());
  state.counters["ours"] = our * nanoseconds;
  state.counters["limit"] = their * nanoseconds;
  state.counters["ratio"] = our / their;
}

double TimeOf(bench::Work work, std::size_t count, bool straight) {
  const bench::Guest guest;
  bench::Mirror mirror(count);
  for (const bench::Work each : bench::allWork) {
    mirror.Share(each);
    const double seconds = Seconds([&] { mirror.Run(each, straight); });
    if (each == work) return seconds;
  }
  return 0;
}

void Pass(benchmark::State& state, bench::Work work) {
  const auto count = static_cast<std::size_t>(state.range(0));
  Compare(
      state, static_cast<double>(count), [&] { return TimeOf(work, count, false); },
      [&] { return TimeOf(work, count, true); });
}

// The limit is a copy of the same bytes into memory that is as new.
void Conversion(benchmark::State& state, bool mask) {
  const auto side = static_cast<std::uint32_t>(state.range(0));
  host::Bytes bitmap = host::BlankBitmap(side, side);
  std::uint32_t random = 1;
  for (std::size_t i = 54; i < bitmap.size(); ++i)
    bitmap[i] = static_cast<std::byte>((random = random * 1664525 + 1013904223) >> 24);
  const int times = 1 + static_cast<int>(10'000'000 / bitmap.size());
  const auto repeat = [times](auto piece) {
    return Seconds([&] {
      for (int i = 0; i < times; ++i) {
        auto made = piece();
        benchmark::DoNotOptimize(made);
        benchmark::ClobberMemory();
      }
    });
  };
  Compare(
      state, static_cast<double>(bitmap.size()) * times,
      [&] { return repeat([&] { return BitmapToIcon(bitmap, mask); }); },
      [&] {
        return repeat([&] {
          auto copy = std::make_unique_for_overwrite<std::byte[]>(bitmap.size());
          std::memcpy(copy.get(), bitmap.data() + 14, bitmap.size() - 14);
          benchmark::DoNotOptimize(copy.get());
          return copy;
        });
      });
}

// A list of as many applications as a reply can hold; the limit converts the same texts.
void LargestReply(benchmark::State& state) {
  const bench::Guest guest;
  bench::Mirror mirror(bench::listRoom);
  mirror.Share(bench::Work::First);
  const auto apps = bench::MakeApplications(bench::listRoom);
  std::vector<std::string> texts;
  for (const host::Application& app : apps) texts.insert(texts.end(), {app.bundleId, app.name});
  Compare(
      state, 1,
      [&] {
        return Seconds([&] {
          MacAppInfoList list;
          GetMacAppList(TEXT("*"), list);
        });
      },
      [&] { return Seconds([&] { bench::AskForList(texts); }); });
}

void Composing(benchmark::State& state) {
  constexpr int times = 100'000;
  const std::string argument = "com.example.application";
  const host::Bytes composed(12 + argument.size() + 1 + 16);
  Compare(
      state, times,
      [&] {
        return Seconds([&] {
          for (int i = 0; i < times; ++i) {
            xdt::bit_box::composer data;
            data.append_string(argument.c_str());
            data.append_uint32(32748);
            benchmark::DoNotOptimize(data.data());
          }
        });
      },
      [&] {
        return Seconds([&] {
          for (int i = 0; i < times; ++i) benchmark::DoNotOptimize(host::Bytes(composed));
        });
      });
}

void RegisterAll() {
  using benchmark::RegisterBenchmark;
  for (const bench::Work work : bench::allWork) {
    for (const int count : {10, 100, 1000, 2000}) {
      RegisterBenchmark(bench::NameOf(work), [work](auto& state) { Pass(state, work); })
          ->Arg(count)
          ->Iterations(count > 100 ? 2 : 2000 / count / 10);
    }
  }
  for (const bool mask : {false, true}) {
    RegisterBenchmark(mask ? "bitmap with mask" : "bitmap without mask",
                      [mask](auto& state) { Conversion(state, mask); })
        ->RangeMultiplier(2)
        ->Range(16, 512)
        ->Iterations(20);
  }
  RegisterBenchmark("reading the largest list", LargestReply)->Iterations(50);
  RegisterBenchmark("composing a request", Composing)->Iterations(20);
}

// Prints the medians as a table.
class Table : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override {
    std::cout << "| what | ns | limit, ns | ratio |\n|---|---|---|---|\n";
    return true;
  }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.aggregate_name != "median") continue;
      std::printf("| %s %s | %.3f | %.3f | %.3f |\n", run.run_name.function_name.c_str(),
                  run.run_name.args.c_str(), run.counters.at("ours").value, run.counters.at("limit").value,
                  run.counters.at("ratio").value);
    }
  }
};

}  // namespace

int main(int argc, char** argv) {
  const std::string what = argc > 1 ? argv[1] : "";
  if (what == "calls") return bench::PrintCalls(), 0;
  if (what == "functions") return bench::PrintFunctions(), 0;
  if (what == "memory") return bench::PrintMemory(), 0;
  if (what == "sleep") return bench::PrintSleep(60), 0;
  benchmark::Initialize(&argc, argv);
  RegisterAll();
  Table table;
  benchmark::RunSpecifiedBenchmarks(&table);
}
