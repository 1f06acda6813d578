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

class HostRecords : public GateTest {
 protected:
  void SetUp() override {
    GateTest::SetUp();
    Watch([this](std::span<const std::byte> envelope) { question.assign(envelope.begin(), envelope.end()); });
  }

  // Answers every question with no data, of which the envelope claims `claimed` bytes.
  void AnswerWith(std::uint32_t result, std::uint32_t claimed, std::uint32_t returned = 48) {
    Bytes reply;
    for (const std::uint32_t field : {0u, 3u, result, 0u, claimed}) host::PutU32(reply, field);
    gate().Serve([=](std::span<const std::byte>) { return host::Reply{reply, 0, returned}; });
  }

  // Asks with `code`: what is filled, each with a semicolon behind it, and what is raised.
  std::string Ask(std::uint32_t code) {
    MacAppInfoList apps{{TEXT(""), TEXT("before")}};
    MacAppDetails details;
    const MacAppInfo app{TEXT("test.app"), TEXT("App")};
    const std::string raised = Raised([&] {
      if (code == 102) GetMacAppList(TEXT("*"), apps);
      if (code == 103) WriteMacAppIcons(nullptr, app);
      if (code == 104) GetMacAppDetails(app, details);
    });
    EXPECT_EQ(apps.at(0).name, TEXT("before"));
    apps.erase(apps.begin());
    std::string filled;
    for (const MacAppInfo& one : apps) filled += WideToUtf8(one.bundleId + TEXT("=") + one.name + TEXT(";"));
    for (const WideString& type : details.documentTypes) filled += "type " + WideToUtf8(type) + ";";
    for (const WideString& type : details.defaultTypes) filled += "default " + WideToUtf8(type) + ";";
    for (const WideString& scheme : details.urlSchemes) filled += "scheme " + WideToUtf8(scheme) + ";";
    if (details.anyType) filled += "any;";
    EXPECT_EQ(gate().Facts().opens, gate().Facts().closes);
    return filled + raised;
  }

  Bytes question;  // the whole envelope of the last one
};

TEST_F(HostRecords, QuestionsCarryArgumentAndRoom) {
  for (const std::uint32_t code : {102u, 103u, 104u}) ReplyWith(code, {});
  EXPECT_EQ(Ask(102), "");
  Bytes expected;
  for (const std::uint32_t field : {102u, 3u, 0u, 0u, 30u, 0u, 3u, 2u}) host::PutU32(expected, field);
  for (const std::uint32_t unit : {0x2Au, 1u, 0u, 1u, 0u, 4u, 0u, 0x7FECu, 0u}) host::PutU16(expected, unit);
  EXPECT_EQ(Bytes(question.begin(), question.begin() + 50), expected);
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
  MacAppInfoList apps;
  const WideString longest(recordsRoom - 29, TEXT('a'));
  const std::pair<WideView, std::string> cases[] = {
      {{TEXT("\u00E9\u6F22\0hidden"), 9}, "\xC3\xA9\xE6\xBC\xA2"},
      {{}, ""},
      {longest, std::string(longest.size(), 'a')}};
  ReplyWith(102, {});
  for (const auto& [pattern, argument] : cases) {
    GetMacAppList(pattern, apps);
    EXPECT_EQ(host::ReadQuestion(question).argument, argument);
  }
  EXPECT_EQ(Raised([&] { GetMacAppList(longest + TEXT('a'), apps); }), "mainfo: request exceeds its buffer");
  EXPECT_EQ(gate().Facts().opens, 3u);
}

TEST_F(HostRecords, EveryQuestionNeedsADeviceDataSuccessAndAReplyInItsRoom) {
  // To the byte: two strings that fill the room, a bitmap that is none, an unknown item.
  const std::string name(recordsRoom - 28, 'n');
  const Bytes fills[] = {Text("id") + Text(name), Item(2, Bytes(iconsRoom - 12)),
                         Item(7, Bytes(recordsRoom - 12))};
  const std::string filled[] = {"id=" + name + ";", noIcons, ""};
  for (const std::uint32_t code : {102u, 103u, 104u}) {
    SCOPED_TRACE(code);
    ReplyWith(code, fills[code - 102]);
    EXPECT_EQ(Ask(code), filled[code - 102]);
    gate().SetPresent(false);
    EXPECT_EQ(Ask(code), "dtool: Can't open tool device driver");
    gate().SetPresent(true);
    gate().FailNext({.request = host::sendCommand, .systemError = ERROR_NOT_READY});
    EXPECT_EQ(Ask(code), "mainfo: ioctl() returned no data");
  }
  for (const std::uint32_t code : {102u, 103u, 104u}) {
    SCOPED_TRACE(code);
    AnswerWith(0, 0, 0);
    EXPECT_EQ(Ask(code), "mainfo: ioctl() returned no data");
    AnswerWith(0x80000000, 0xFFFFFFFF);  // the result counts before the reply is looked at
    EXPECT_EQ(Ask(code), "mainfo: command failed");
    const std::size_t room = code == 103 ? iconsRoom : recordsRoom;
    for (const std::size_t claimed : {std::size_t{0xFFFFFFFF}, room + 1}) {
      AnswerWith(0, static_cast<std::uint32_t>(claimed));
      EXPECT_EQ(Ask(code), "mainfo: reply exceeds its buffer");
    }
  }
  AnswerWith(0, 12);  // what is left of the question behind a reply is no part of it
  EXPECT_EQ(Ask(102), exceeds);
}

TEST_F(HostRecords, RepliesAreReadUntilTheyBreak) {
  const Bytes pair = Text("id") + Text("name"), one = Text("x"), raw = Item(3, Bytes(1, std::byte{'x'}));
  const Bytes doc = Text("doc"), flag = Items().Number(4, 0x100).bytes(), clear = Item(4, Bytes(4));
  const Bytes bitmap = Item(2, TestBitmap(1, 1));
  const Bytes utf8 = Text("id") + Text(std::string("\xE6\xBC\xA2 \xF0\x9F\x98\x80 a\xFFz\0b", 14));
  const Bytes allTypes = Items().Text(6, "mailto").Add(1, {}).Text(5, "txt").Text(3, "rtf").bytes() + clear +
                         Items().Text(6, "").Text(3, "doc").Add(7, Bytes(1)).Text(5, "").bytes() + one + flag;
  const struct {
    std::uint32_t code;
    Bytes data;
    std::string result;
  } cases[] = {
      {102, pair + pair, "id=name;id=name;"},
      {102, pair + one, "id=name;mainfo: list format error"},
      {102, pair + clear + one, "id=name;" + stringExpected},
      {102, pair + one + clear, "id=name;" + stringExpected},
      {102, pair + one + raw, "id=name;" + unterminated},
      {102, utf8, "id=\xE6\xBC\xA2 \xF0\x9F\x98\x80 a\xEF\xBF\xBDz;"},
      {104, allTypes, "type rtf;type doc;type x;default txt;default ;scheme mailto;scheme ;any;"},
      {104, flag + clear, ""},
      {104, doc + Item(4, Bytes(3)), "type doc;" + exceeds},
      {104, doc + Item(6, {}), "type doc;" + unterminated},
      {104, doc + Bytes(11), "type doc;" + exceeds},
      {103, Item(2, {}) + Item(2, Bytes(53)), noIcons},  // too short
      {103, bitmap + Item(3, Bytes(1)), bitmapExpected},
      {103, Item(0, Bytes(1)) + bitmap, bitmapExpected},
  };
  for (const auto& c : cases) {
    ReplyWith(c.code, c.data);
    EXPECT_EQ(Ask(c.code), c.result);
  }
}

}  // namespace
