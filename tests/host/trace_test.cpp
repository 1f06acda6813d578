// A recording says when it is not what was recorded, and a guest that does not come out the same is found.
#include "host/trace.h"

#include <fstream>
#include <functional>
#include <random>
#include <sstream>

#include "host/replay.h"
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

  std::string Fault(const std::string& text) const {
    std::ofstream(file_, std::ios::binary) << text;
    return host::ReadTrace(file_).fault;
  }

  // A short talk, without a guest that answers.
  void RecordTalk() {
    host::PrepareGuest();
    host::Recorder recorder(file_);
    host::Conversation talk;
    talk.Listen([&](const host::Exchange& exchange) { recorder.Hear(exchange); });
    talk.BeginStep("first");
    talk.Hear(Direction::Command, host::SharingCommand(true));
    talk.Hear(Direction::Reply, host::Envelope(102, Items().Text(3, "b.chess").Text(3, "Chess").bytes()));
    talk.BeginStep("second");
    talk.Hear(Direction::Command, host::SharingCommand(false));
    recorder.Finish();
  }

  const fs::path file_ = fs::temp_directory_path() / ("trace-" + std::to_string(std::random_device()()));
};

TEST_F(TraceTest, NamesTheLineThatIsCutOrChanged) {
  RecordTalk();
  std::ostringstream text;
  text << std::ifstream(file_, std::ios::binary).rdbuf();
  const std::string whole = text.str();
  EXPECT_EQ(Fault(whole), "");
  std::size_t line = 1, start = 0;
  for (std::size_t at = 0; at < whole.size(); ++at) {
    const std::string where = file_.string() + ": line " + std::to_string(line) + ": ";
    if (at % 17 != 0 && whole[at] != '\n') continue;
    std::string changed = whole;
    changed[at] ^= 1;
    ASSERT_EQ(Fault(changed), where + "is cut or changed") << at;
    if (at > start) {
      ASSERT_EQ(Fault(whole.substr(0, at)), where + "is cut or changed") << at;
    }
    if (whole[at] != '\n') continue;
    if (at + 1 < whole.size()) {
      EXPECT_EQ(Fault(whole.substr(0, at + 1)), where + "the recording stops here, without its end");
      EXPECT_NE(Fault(whole.substr(0, start) + whole.substr(at + 1)), "") << "without line " << line;
    }
    start = at + 1;
    ++line;
  }
  EXPECT_EQ(line - 1, 7u);
}

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
  } cases[] = {{"", [](host::Trace&) {}},
               {"  -     added = x",
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
    EXPECT_EQ(host::Replay(out, trace, session), *each.text == '\0') << out.str();
    EXPECT_NE(out.str().find(each.text), std::string::npos) << out.str();
  }
}

}  // namespace
