// The three questions to the host as it sees them, and every reply that a host could get wrong. After each
// one the device is closed again and the next question is answered.

#include "channel/mainfo.h"
#include "support/gate_fixture.h"
#include "support/raised.h"

namespace {

using host::Bytes;

constexpr std::size_t recordsRoom = 32748, iconsRoom = 277764;
// What the icons end with when they are read well and none of them is a bitmap.
const std::string noIcons = "resop: icon group list is empty";
const std::string exceeds = "bit_box: item exceeds its bit_box";
const std::string unterminated = "bit_box: string is not terminated";
const std::string stringExpected = "mainfo: type WMA_Command::bbt_utf8string expected";
const std::string bitmapExpected = "mainfo: type WMA_Command::bbt_bitmap expected";

Bytes Text(const std::string& text) {
  return Items().Text(3, text).bytes();
}
Bytes Item(std::uint32_t type, const Bytes& value) {
  return Items().Add(type, value).bytes();
}
Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// What one question fills, flat, so that a table can say it.
struct Records {
  std::vector<std::pair<WideString, WideString>> apps = {};
  std::vector<WideString> documents = {}, defaults = {}, schemes = {};
  bool any = false;
  bool operator==(const Records&) const = default;
};

class HostRecords : public GateTest {
 protected:
  struct Answer {
    Bytes data = {};
    std::uint32_t result = 0;
    std::int64_t claimed = -1;  // dataSize; -1: as many as there are
    std::uint32_t returned = 48;
  };
  // Answers every question so.
  void AnswerWith(const Answer& answer) {
    Bytes reply = host::Envelope(0, answer.data, answer.result);
    Bytes size;
    host::PutU32(size, static_cast<std::uint32_t>(answer.claimed));
    if (answer.claimed >= 0) std::copy(size.begin(), size.end(), reply.begin() + 16);
    gate().Serve([this, reply, returned = answer.returned](std::span<const std::byte> envelope) {
      question.assign(envelope.begin(), envelope.end());
      return host::Reply{.bytes = reply, .returned = returned};
    });
  }
  // Asks with `code`; what is raised. `records` then has what was filled.
  std::string Ask(std::uint32_t code) {
    MacAppInfoList apps{{TEXT(""), TEXT("before")}};
    MacAppDetails details;
    const MacAppInfo app{TEXT("test.app"), TEXT("App")};
    const std::string raised = Raised([&] {
      if (code == 102) GetMacAppList(TEXT("*"), apps);
      if (code == 103) WriteMacAppIcons(nullptr, app);
      if (code == 104) GetMacAppDetails(app, details);
    });
    records = {{}, details.documentTypes, details.defaultTypes, details.urlSchemes, details.anyType};
    EXPECT_EQ(apps.at(0).name, TEXT("before"));
    apps.erase(apps.begin());
    for (const MacAppInfo& one : apps) records.apps.emplace_back(one.bundleId, one.name);
    const host::GateFacts facts = gate().Facts();
    EXPECT_EQ(facts.opens, facts.closes);
    return raised;
  }

  Records records;
  Bytes question;  // the whole envelope of the last one
};

TEST_F(HostRecords, QuestionsCarryArgumentAndRoom) {
  AnswerWith({});
  EXPECT_EQ(Ask(102), "");
  Bytes expected;
  for (const std::uint32_t field : {102u, 3u, 0u, 0u, 30u, 0u, 3u, 2u}) host::PutU32(expected, field);
  for (const std::uint32_t unit : {0x2Au, 1u, 0u, 1u, 0u, 4u, 0u, 0x7FECu, 0u}) host::PutU16(expected, unit);
  EXPECT_EQ(question, expected);
  for (const auto& [code, room] : {std::pair(104u, recordsRoom), {103u, iconsRoom}}) {
    EXPECT_EQ(Ask(code), code == 103 ? noIcons : "");
    const host::Question asked = host::ReadQuestion(question);
    EXPECT_TRUE(asked.valid);
    EXPECT_EQ(asked.code, code);
    EXPECT_EQ(asked.argument, "test.app");
    EXPECT_EQ(asked.room, room);
  }
}

TEST_F(HostRecords, ArgumentsAreUtf8UpToTheirNulAndMustFit) {
  AnswerWith({});
  MacAppInfoList apps;
  const WideString longest(recordsRoom - 29, TEXT('a'));
  const std::pair<WideView, std::string> cases[] = {
      {{TEXT("\u00E9\u6F22\0hidden"), 9}, "\xC3\xA9\xE6\xBC\xA2"},
      {{}, ""},
      {longest, std::string(longest.size(), 'a')}};
  for (const auto& [pattern, argument] : cases) {
    GetMacAppList(pattern, apps);
    EXPECT_EQ(host::ReadQuestion(question).argument, argument);
  }
  EXPECT_EQ(Raised([&] { GetMacAppList(longest + TEXT('a'), apps); }), "mainfo: request exceeds its buffer");
  EXPECT_EQ(gate().Facts().opens, 3u);
}

TEST_F(HostRecords, EveryQuestionNeedsADeviceDataSuccessAndAReplyInItsRoom) {
  for (const std::uint32_t code : {102u, 103u, 104u}) {
    SCOPED_TRACE(code);
    const std::size_t room = code == 103 ? iconsRoom : recordsRoom;
    gate().SetPresent(false);
    EXPECT_EQ(Ask(code), "dtool: Can't open tool device driver");
    gate().SetPresent(true);
    AnswerWith({.returned = 0});
    EXPECT_EQ(Ask(code), "mainfo: ioctl() returned no data");
    gate().FailNext({.request = host::sendCommand, .systemError = ERROR_NOT_READY});
    EXPECT_EQ(Ask(code), "mainfo: ioctl() returned no data");
    // The result counts before the reply is looked at.
    AnswerWith({.result = 0x80000000, .claimed = 0xFFFFFFFF});
    EXPECT_EQ(Ask(code), "mainfo: command failed");
    for (const std::int64_t claimed : {std::int64_t{0xFFFFFFFF}, static_cast<std::int64_t>(room) + 1}) {
      AnswerWith({.claimed = claimed});
      EXPECT_EQ(Ask(code), "mainfo: reply exceeds its buffer");
    }
    EXPECT_EQ(records, Records{});
    // To the byte: a bitmap that is none, an unknown item, two strings that fill the room.
    const Bytes fills[] = {Text("id") + Text(std::string(room - 28, 'n')), Item(2, Bytes(room - 12)),
                           Item(7, Bytes(room - 12))};
    AnswerWith({fills[code - 102]});
    EXPECT_EQ(Ask(code), code == 103 ? noIcons : "");
    if (code == 102) {
      EXPECT_EQ(records.apps.at(0).second.size(), room - 28);
    }
  }
}

TEST_F(HostRecords, RepliesAreReadUntilTheyBreak) {
  const Bytes pair = Text("id") + Text("name"), one = Text("x"), raw = Item(3, Bytes(1, std::byte{'x'}));
  const Bytes doc = Text("doc"), flag = Items().Number(4, 0x100).bytes(), clear = Item(4, Bytes(4));
  const Bytes bitmap = Item(2, TestBitmap(1, 1));
  const Records listed{.apps = {{TEXT("id"), TEXT("name")}}}, doc1{.documents = {TEXT("doc")}};
  const struct {
    std::uint32_t code;
    const char* what;
    Bytes data;
    Records records;
    std::string raised;
  } cases[] = {
      {102, "pairs", pair + pair, {.apps = {listed.apps[0], listed.apps[0]}}, ""},
      {102, "odd count", pair + one, listed, "mainfo: list format error"},
      {102, "wrong first type", pair + clear + one, listed, stringExpected},
      {102, "wrong second type", pair + one + clear, listed, stringExpected},
      {102, "second not terminated", pair + one + raw, listed, unterminated},
      {102,
       "UTF-8 up to its NUL",
       Text("id") + Text(std::string("\xE6\xBC\xA2 \xF0\x9F\x98\x80 a\xFFz\0b", 14)),
       {.apps = {{TEXT("id"), TEXT("\u6F22 \U0001F600 a\uFFFDz")}}},
       ""},
      {104,
       "all types in any order",
       Items().Text(6, "mailto").Add(1, {}).Text(5, "txt").Text(3, "rtf").Add(2, Bytes(1)).bytes() + clear +
           Items().Text(6, "").Text(3, "doc").Add(7, Bytes(1)).Text(5, "").Text(3, "rtf").bytes() + flag,
       {.documents = {TEXT("rtf"), TEXT("doc"), TEXT("rtf")},
        .defaults = {TEXT("txt"), TEXT("")},
        .schemes = {TEXT("mailto"), TEXT("")},
        .any = true},
       ""},
      {104, "the last flag counts", flag + clear, {}, ""},
      {104, "short flag", doc + Item(4, Bytes(3)), doc1, exceeds},
      {104, "type 6 not terminated", doc + Item(6, {}), doc1, unterminated},
      {104, "cut header", doc + Bytes(11), doc1, exceeds},
      {103, "too short", Item(2, {}) + Item(2, Bytes(53)), {}, noIcons},
      {103, "wrong last type", bitmap + Item(3, Bytes(1)), {}, bitmapExpected},
      {103, "wrong first type", Item(0, Bytes(1)) + bitmap, {}, bitmapExpected}};
  for (const auto& c : cases) {
    AnswerWith({c.data});
    EXPECT_EQ(Ask(c.code), c.raised) << c.what;
    EXPECT_EQ(records, c.records) << c.what;
  }
  // What is left of the question behind a reply is no part of it.
  AnswerWith({pair, 0, 12});
  EXPECT_EQ(Ask(102), exceeds);
  EXPECT_EQ(records, Records{});
}

}  // namespace
