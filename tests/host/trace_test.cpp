// A recording is played again, and a guest that does not come out the same is found.
#include "host/trace.h"

#include <fstream>
#include <random>
#include <sstream>

#include "host/story.h"
#include "host/system.h"
#include "support/gate_fixture.h"

namespace {

namespace fs = std::filesystem;
using host::Direction;

class TraceTest : public GuestTest {
 protected:
  ~TraceTest() override { fs::remove(file_); }

  void NewGuest() {
    GuestTest::TearDown();
    GuestTest::SetUp();
    host::PrepareGuest();
  }

  const fs::path file_ = fs::temp_directory_path() / ("trace-" + std::to_string(std::random_device()()));
};

TEST_F(TraceTest, PlaysAgainAndFindsWhatIsDifferent) {
  const host::SessionOptions session{host::DefaultModule(), std::chrono::seconds(60)};
  host::Catalogue catalogue;
  catalogue.Add(TestApplication("Chess", {"pgn"}, {"pgn"}));
  catalogue.Add(TestApplication("Go", {}, {}, {"go"}));
  host::PrepareGuest();
  {
    host::Recorder recorder(file_);
    host::StoryOptions options;
    options.listen = [&](const host::Exchange& exchange) { recorder.Hear(exchange); };
    ::testing::internal::CaptureStdout();
    host::TellStory(catalogue, session, options);
    ::testing::internal::GetCapturedStdout();
    recorder.Finish();
  }
  const host::Trace recorded = host::ReadTrace(file_);
  ASSERT_EQ(recorded.fault, "");
  const auto find = [](host::Trace& trace, Direction direction, const char* code) {
    return std::ranges::find_if(trace.lines, [&](const host::TraceLine& line) {
      return host::Is(line, direction) && line.fields.at("code") == code;
    });
  };
  const struct {
    const char* text;
    std::function<void(host::Trace&)> change;
  } cases[] = {{"  -     added = x",
                [](host::Trace& trace) {
                  trace.lines[trace.lines.size() - 2].fields["guest"]["registry"]
                                                            ["HKCU\\Software\\RegisteredApplications\x01"
                                                             "added"] = "\"x\"";
                }},
               {".fen",
                [&](host::Trace& trace) {
                  find(trace, Direction::Reply, "details")->bytes =
                      host::Envelope(104, Items().Text(3, "fen").bytes());
                }},
               {"the guest does not ask what it asked then: icons, bundleId test.Chess, room 277764",
                [&](host::Trace& trace) {
                  const auto request = find(trace, Direction::Request, "icons");
                  trace.lines.insert(request, {*request, *(request + 1)});
                }},
               {"the guest asks what it did not ask then: details, bundleId test.Chess, room 32748",
                [&](host::Trace& trace) {
                  const auto request = find(trace, Direction::Request, "details");
                  trace.lines.erase(request, request + 2);
                }}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.text);
    NewGuest();
    host::Trace trace = recorded;
    each.change(trace);
    std::ostringstream out;
    EXPECT_FALSE(host::Replay(out, trace, session)) << out.str();
    EXPECT_NE(out.str().find(each.text), std::string::npos) << out.str();
  }
}

}  // namespace
