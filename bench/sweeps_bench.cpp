// What the sweeps cost as a guest grows: platform calls per launcher and per foreign class, counted by the
// layer. Linear cost shows as counters that stay the same from row to row; the times are for orientation
// only.
#include <benchmark/benchmark.h>
#include <platform/control.h>

#include <filesystem>
#include <string>

#include "common/host_application.h"
#include "common/names.h"
#include "launcher/fs.h"
#include "registry/registry.h"
#include "registry/registry_names.h"
#include "sync/stale_sweep.h"
#include "sync/withdrawal.h"

namespace {

WideString Numbered(const char* prefix, std::int64_t number) {
  return Utf8ToWide(prefix + std::to_string(number));
}

void FreshGuest() {
  const auto root = std::filesystem::temp_directory_path() / "velomira-bench";
  std::filesystem::remove_all(root);
  platform::SetGuestRoot(root);
  platform::ResetRegistry();
}

double AllCalls() {
  double calls = 0;
  for (const auto& [name, count] : platform::CallCounts()) calls += static_cast<double>(count);
  return calls;
}

void WriteLauncher(const WideString& folder, const WideString& name) {
  const UniqueFile file(CreateFileW(LauncherPath(folder, name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
}

// Every launcher in the folder is on the list: the sweep looks each one up and removes nothing.
void StaleSweepOfListedLaunchers(benchmark::State& state) {
  FreshGuest();
  const WideString folder = LauncherFolder();
  MacAppInfoList apps;
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    apps.push_back({Numbered("bench.", i), Numbered("Application ", i)});
    WriteLauncher(folder, apps.back().name);
  }
  platform::ResetCallCounts();
  for (auto _ : state) RemoveStaleLaunchers(apps, folder);
  state.counters["calls/launcher"] =
      AllCalls() / static_cast<double>(state.range(0)) / static_cast<double>(state.iterations());
}
BENCHMARK(StaleSweepOfListedLaunchers)->Arg(250)->Arg(500)->Arg(1000)->Arg(2000);

// A guest full of other programs' classes, a tenth of them extensions with Open With lists of their own.
void WithdrawalAmongForeignClasses(benchmark::State& state) {
  FreshGuest();
  SetStringValue(HKEY_CURRENT_USER, applicationsKey, defaultValue, {});
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    const bool extension = i % 10 == 0;
    const WideString key = ClassKey(Numbered(extension ? ".ext" : "Foreign.Class.", i));
    SetStringValue(HKEY_CURRENT_USER, extension ? key + TEXT("\\OpenWithList") : key, defaultValue,
                   TEXT("x"));
  }
  platform::ResetCallCounts();
  for (auto _ : state) WithdrawHostApplications();
  state.counters["calls/class"] =
      AllCalls() / static_cast<double>(state.range(0)) / static_cast<double>(state.iterations());
}
BENCHMARK(WithdrawalAmongForeignClasses)->Arg(2500)->Arg(5000)->Arg(10000)->Arg(20000);

}  // namespace

BENCHMARK_MAIN();
