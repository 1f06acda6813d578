// The DLL against the straight line on Windows, by turns in one process, through the driver double. What the
// driver and the host behind it cost is measured by itself: the same exchanges, and nothing else. All of it
// is the mean of the rounds.
#include <windows.h>

#include <objbase.h>
#include <shlwapi.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>

#include "applications.h"
#include "host/prepare.h"
#include "host/session.h"
#include "launcher/fs.h"
#include "straight_line.h"

namespace {

struct Cost {
  double wall = 0, processor = 0;  // milliseconds; the processor's time is this process' and Wine's server's
};

double ProcessTime() {
  FILETIME unused, kernel, user;
  GetProcessTimes(GetCurrentProcess(), &unused, &unused, &kernel, &user);
  const auto milliseconds = [](const FILETIME& time) {
    return static_cast<double>(ULONGLONG{time.dwHighDateTime} << 32 | time.dwLowDateTime) / 10'000;
  };
  return milliseconds(kernel) + milliseconds(user);
}

// `server`: the process of Wine's server, as Linux numbers it; its clock ticks 100 times a second.
double ServerTime(const std::string& server) {
  std::ifstream stat("Z:\\proc\\" + server + "\\stat");
  double ticks = 0;
  std::string word;
  for (int field = 1; field <= 15 && stat >> word; ++field)
    if (field >= 14) ticks += std::stod(word);
  return ticks * 10;
}

// What comes next, for those who read the trace of Wine's server.
void Mark(const std::string& name) {
  CloseHandle(CreateEventA(nullptr, TRUE, FALSE, ("velomira-bench " + name).c_str()));
}

template <class Piece>
Cost CostOf(const std::string& name, const std::string& server, Piece piece) {
  Mark(name);
  const double processor = ProcessTime() + ServerTime(server);
  const auto start = std::chrono::steady_clock::now();
  piece();
  const std::chrono::duration<double, std::milli> wall = std::chrono::steady_clock::now() - start;
  const Cost cost{wall.count(), ProcessTime() + ServerTime(server) - processor};
  Mark("end");
  return cost;
}

void ClearGuest() {
  SHDeleteKeyW(HKEY_CURRENT_USER, L"Software\\Classes");
  host::PrepareGuest();
}

void Run(std::size_t count, int rounds, const std::string& server, bool sleep) {
  host::PrepareGuest();
  host::Session session(host::DefaultModule(), std::chrono::minutes(10));
  host::Catalogue catalogue;
  for (host::Application& application : bench::MakeApplications(count)) catalogue.Add(std::move(application));
  session.Share(std::move(catalogue));
  session.Start();
  CoInitialize(nullptr);
  const bench::StraightLine line(bench::MakeApplications(count), {});
  std::map<std::string, std::vector<Cost>> costs;
  const auto measure = [&](const std::string& name, auto piece) {
    costs[name].push_back(CostOf(name, server, piece));
  };
  const auto straight = [&] {
    ClearGuest();
    measure("straight first", [&] { line.Pass(); });
    measure("straight unchanged", [&] { line.Pass(); });
    measure("straight withdrawal", [&] {
      line.Withdraw();
      RemoveLauncherFolders();
    });
  };
  for (int round = 0; round <= rounds; ++round) {  // the first one only warms up
    if (round % 2 == 1) straight();
    ClearGuest();
    measure("dll first", [&] { session.On(); });
    measure("dll unchanged", [&] { session.On(); });
    measure("dll withdrawal", [&] { session.Off(); });
    if (round % 2 == 0) straight();
    measure("driver first", [&] { line.Ask(true); });
    measure("driver unchanged", [&] { line.Ask(false); });
    costs["driver withdrawal"].push_back({});
    if (round == 0 && rounds > 0) costs.clear();
  }
  if (sleep) measure("sleep", [] { Sleep(60'000); });
  for (const std::string work : {"first", "unchanged", "withdrawal"}) {
    const auto row = [&](double Cost::*part, const char* what) {
      const auto mean = [&](const std::string& who) {
        double sum = 0;
        for (const Cost& cost : costs[who + ' ' + work]) sum += cost.*part;
        return sum / rounds;
      };
      const double dll = mean("dll"), limit = mean("straight"), driver = mean("driver");
      std::printf("| %zu applications, %s, %s | %.0f | %.0f | %.0f | %.3f |\n", count, work.c_str(), what,
                  dll, limit, driver, (dll - driver) / (limit - driver));
    };
    row(&Cost::wall, "wall");
    row(&Cost::processor, "processor");
  }
  session.Stop();
  CoUninitialize();
}

}  // namespace

// velomira_bench APPLICATIONS ROUNDS SERVER [sleep]
int main(int argc, char** argv) {
  if (argc < 4) return 2;
  try {
    Run(std::stoul(argv[1]), std::stoi(argv[2]), argv[3], argc > 4);
    return 0;
  } catch (const std::exception& failure) {
    std::cerr << "velomira_bench: " << failure.what() << std::endl;
    std::_Exit(1);  // the module's thread may still run and never answer
  }
}
