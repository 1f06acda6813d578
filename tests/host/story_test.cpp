// The demonstration ends well with any catalogue, and the guest that it leaves is what its catalogue asks
// for.
#include "host/story.h"

#include <algorithm>

#include "host/judge.h"
#include "host/system.h"
#include "support/gate_fixture.h"

namespace {

class StoryTest : public GuestTest {};

std::vector<host::Application> Applications(std::size_t count) {
  std::vector<host::Application> apps;
  for (std::size_t i = 0; i < count; ++i) apps.push_back(TestApplication(std::to_string(i)));
  return apps;
}

std::vector<host::Application> With(const std::string& name) {
  std::vector<host::Application> apps = Applications(3);
  apps[0].name = name;
  return apps;
}

TEST_F(StoryTest, GoesWellWithAnyCatalogue) {
  std::vector<host::Application> faceless = Applications(4), hostile = Applications(3),
                                 full = Applications(98);
  for (host::Application& app : faceless) app.icons.clear();
  faceless[3].icons.push_back(host::RefusedIcon(host::PlainIcon()));
  hostile[0].documentTypes = hostile[0].defaultTypes = {"exe", "a.b", "TXT", "txt", std::string(200, 'x')};
  hostile[1].urlSchemes = {".txt", "txt_auto_file", "Applications", "a b", std::string(200, 'x')};
  for (host::Application& app : full) app.bundleId.resize(299, '.');
  const std::vector<std::vector<host::Application>> catalogues = {{},
                                                                  Applications(1),
                                                                  Applications(2),
                                                                  With("Newcomer"),
                                                                  With("1 Deluxe"),
                                                                  With(std::string(100, 'a')),
                                                                  faceless,
                                                                  hostile,
                                                                  full};
  host::PrepareGuest();
  for (const auto& apps : catalogues) {
    host::Catalogue catalogue;
    for (const host::Application& app : apps) catalogue.Add(app);
    int steps = 0;
    host::StoryOptions options{.keepOn = true};
    options.watch = [&](const std::string&, const host::Catalogue&, const host::Snapshot&) { ++steps; };
    ::testing::internal::CaptureStdout();
    const host::Catalogue last =
        host::TellStory(catalogue, {host::DefaultModule(), std::chrono::seconds(60)}, options);
    const std::string told = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(steps, 5);
    EXPECT_LE(std::ranges::count(told, '\n'), 40);
    for (const host::Finding& finding : Judge(host::TakeSnapshot(), last, true)) {
      EXPECT_EQ(finding.kind, host::Finding::Kind::Kept) << finding.application << ": " << finding.text;
    }
  }
}

}  // namespace
