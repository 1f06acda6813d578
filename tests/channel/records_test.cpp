// The three questions to the host as it sees them, and every reply that a host could get wrong. After each
// one the device is closed again and the next question is answered.
#include <gtest/gtest.h>

#include <functional>
#include <mutex>

#include "channel/mainfo.h"
#include "channel/tool_gate.h"
#include "support/gate_fixture.h"
#include "support/raised.h"

namespace {

using Bytes = std::vector<std::byte>;

constexpr std::size_t recordsRoom = 32748, iconsRoom = 277764;
constexpr std::uint32_t text = WMA_Command::bbt_utf8string;

Bytes BytesOf(std::initializer_list<int> values) {
  Bytes bytes;
  for (const int value : values) bytes.push_back(static_cast<std::byte>(value));
  return bytes;
}

// An item that claims `claimed` bytes and has those of `value`.
Bytes Claiming(std::uint32_t type, std::uint32_t claimed, const Bytes& value) {
  Bytes item = Items().Add(type, value).bytes();
  for (int i = 0; i < 4; ++i)
    item[static_cast<std::size_t>(8 + i)] = static_cast<std::byte>(claimed >> (8 * i));
  return item;
}

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

struct Answer {
  Bytes data = {};
  std::uint32_t result = 0;
  std::int64_t claimed = -1;  // dataSize; -1: as many as there are
  std::uint32_t returned = 48;
};

class HostRecords : public GateTest {
 protected:
  // Answers every question so.
  void AnswerWith(Answer answer) {
    const std::uint32_t size =
        static_cast<std::uint32_t>(answer.claimed >= 0 ? answer.claimed : std::int64_t(answer.data.size()));
    gate().Serve([this, answer = std::move(answer), size](std::span<const std::byte> envelope) {
      std::lock_guard lock(mutex_);
      question_.assign(envelope.begin(), envelope.end());
      Bytes reply;
      for (const std::uint32_t field : {0u, 3u, answer.result, 0u, size}) host::PutU32(reply, field);
      return host::Reply{.bytes = reply + answer.data, .returned = answer.returned};
    });
  }

  // The whole envelope of the last question.
  Bytes Question() {
    std::lock_guard lock(mutex_);
    return question_;
  }

  MacAppInfoList apps;
  MacAppDetails details;
  const MacAppInfo app{TEXT("test.app"), TEXT("App")};

  std::string List() {
    return Raised([&] { GetMacAppList(TEXT("*"), apps); });
  }
  std::string Details() {
    return Raised([&] { GetMacAppDetails(app, details); });
  }
  std::string Icons() {
    return Raised([&] { WriteMacAppIcons(nullptr, app); });
  }

  std::size_t Entries() const {
    return apps.size() + details.documentTypes.size() + details.defaultTypes.size() +
           details.urlSchemes.size();
  }

 private:
  std::mutex mutex_;
  Bytes question_;
};

const std::string noIcons =
    "resop: icon group list is empty";  // what the icons end with when they are read well

TEST_F(HostRecords, QuestionsCarryArgumentAndRoom) {
  AnswerWith({});
  EXPECT_EQ(List(), "");
  EXPECT_EQ(Question(), BytesOf({102, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0, 0,    0,    0, 0, 30, 0, 0, 0,  //
                                 0,   0, 0, 0, 3, 0, 0, 0, 2, 0, 0, 0, '*',  0,                        //
                                 1,   0, 0, 0, 1, 0, 0, 0, 4, 0, 0, 0, 0xEC, 0x7F, 0, 0}));
  EXPECT_EQ(Details(), "");
  host::Question question = host::ReadQuestion(Question());
  EXPECT_TRUE(question.valid);
  EXPECT_EQ(question.code, 104u);
  EXPECT_EQ(question.argument, "test.app");
  EXPECT_EQ(question.room, recordsRoom);
  EXPECT_EQ(Icons(), noIcons);
  question = host::ReadQuestion(Question());
  EXPECT_TRUE(question.valid);
  EXPECT_EQ(question.code, 103u);
  EXPECT_EQ(question.argument, "test.app");
  EXPECT_EQ(question.room, iconsRoom);
  EXPECT_EQ(Entries(), 0u);
}

TEST_F(HostRecords, ArgumentsAreUtf8UpToTheirNulAndMustFit) {
  AnswerWith({});
  GetMacAppList(WideView(TEXT("\u00E9\u6F22\0hidden"), 9), apps);
  EXPECT_EQ(host::ReadQuestion(Question()).argument, "\xC3\xA9\xE6\xBC\xA2");
  GetMacAppList({}, apps);
  EXPECT_EQ(host::ReadQuestion(Question()).argument, "");
  const WideString longest(recordsRoom - 29, TEXT('a'));
  GetMacAppList(longest, apps);
  EXPECT_EQ(host::ReadQuestion(Question()).argument.size(), longest.size());
  const auto before = gate().Facts();
  EXPECT_EQ(Raised([&] { GetMacAppList(longest + TEXT('a'), apps); }), "mainfo: request exceeds its buffer");
  EXPECT_EQ(gate().Facts().sends, before.sends);
  EXPECT_EQ(gate().Facts().opens, before.opens);
}

TEST_F(HostRecords, AnAbsentDeviceIsRaisedByEachQuestion) {
  gate().SetPresent(false);
  for (const std::string& raised : {List(), Details(), Icons()}) {
    EXPECT_EQ(raised, "dtool: Can't open tool device driver");
  }
  gate().SetPresent(true);
  EXPECT_EQ(gate().Facts().sends, 0u);
}

TEST_F(HostRecords, EveryQuestionNeedsDataAndSuccessAndAReplyInItsRoom) {
  const std::function<std::string()> questions[] = {[&] { return List(); }, [&] { return Details(); },
                                                    [&] { return Icons(); }};
  for (const auto& ask : questions) {
    AnswerWith({.returned = 0});
    EXPECT_EQ(ask(), "mainfo: ioctl() returned no data");
    gate().FailNext({.request = TgSendCommand, .systemError = ERROR_NOT_READY});
    AnswerWith({});
    EXPECT_EQ(ask(), "mainfo: ioctl() returned no data");
    // The result counts before the reply is looked at.
    AnswerWith({.result = 0x80000000, .claimed = 0xFFFFFFFF});
    EXPECT_EQ(ask(), "mainfo: command failed");
    AnswerWith({.claimed = 0xFFFFFFFF});
    EXPECT_EQ(ask(), "mainfo: reply exceeds its buffer");
    EXPECT_EQ(Entries(), 0u);
    const host::GateFacts facts = gate().Facts();
    EXPECT_EQ(facts.opens, facts.closes);
  }
  // The rooms to the byte: an item of unknown type, of a bitmap and two strings that fill them.
  const auto claim = [&](std::size_t size) { AnswerWith({.claimed = static_cast<std::int64_t>(size)}); };
  for (const auto& ask : {questions[0], questions[1]}) {
    claim(recordsRoom + 1);
    EXPECT_EQ(ask(), "mainfo: reply exceeds its buffer");
  }
  claim(iconsRoom + 1);
  EXPECT_EQ(Icons(), "mainfo: reply exceeds its buffer");
  AnswerWith({Items().Text(text, "id").Text(text, std::string(recordsRoom - 12 - 3 - 12 - 1, 'n')).bytes()});
  EXPECT_EQ(List(), "");
  ASSERT_EQ(apps.size(), 1u);
  EXPECT_EQ(apps[0].name, WideString(recordsRoom - 28, TEXT('n')));
  AnswerWith({Items().Add(7, Bytes(recordsRoom - 12)).bytes()});
  EXPECT_EQ(Details(), "");
  AnswerWith({Items().Add(WMA_Command::bbt_bitmap, Bytes(iconsRoom - 12)).bytes()});
  EXPECT_EQ(Icons(), noIcons);
}

TEST_F(HostRecords, AListIsReadInPairsUntilItBreaks) {
  const std::string expected = "mainfo: type WMA_Command::bbt_utf8string expected";
  const std::string exceeds = "bit_box: item exceeds its bit_box";
  const std::string unterminated = "bit_box: string is not terminated";
  const Bytes pair = Items().Text(text, "id").Text(text, "name").bytes();
  const Bytes one = Items().Text(text, "x").bytes(), raw = Items().Add(text, BytesOf({'x'})).bytes();
  struct Case {
    const char* what;
    Bytes data;
    std::size_t pairs;
    std::string raised;
  };
  const Case cases[] = {
      {"empty", {}, 0, ""},
      {"pairs", pair + pair, 2, ""},
      {"odd count", pair + one, 1, "mainfo: list format error"},
      {"wrong first type", pair + Items().Add(4, Bytes(4)).Text(text, "n").bytes(), 1, expected},
      {"wrong second type", pair + one + Items().Add(4, Bytes(4)).bytes(), 1, expected},
      {"wrong type, not terminated", Items().Add(5, BytesOf({'x'})).bytes(), 0, expected},
      {"first not terminated", pair + raw + one, 1, unterminated},
      {"second not terminated", pair + one + raw, 1, unterminated},
      {"empty value", pair + Items().Add(text, {}).bytes(), 1, unterminated},
      {"first past the end", pair + Claiming(text, 3, BytesOf({'x', 0})), 1, exceeds},
      {"second past the end", pair + one + Claiming(text, 0xFFFFFFF4, BytesOf({0})), 1, exceeds},
      {"cut header", pair + BytesOf({0, 0, 0, 0, 3, 0, 0, 0, 1, 0, 0}), 1, exceeds},
      {"one byte", BytesOf({0}), 0, exceeds},
  };
  for (const Case& c : cases) {
    apps = {{TEXT("before"), TEXT("before")}};
    AnswerWith({c.data});
    EXPECT_EQ(List(), c.raised) << c.what;
    ASSERT_EQ(apps.size(), 1 + c.pairs) << c.what;
    for (std::size_t i = 1; i < apps.size(); ++i) {
      EXPECT_EQ(apps[i].bundleId, TEXT("id"));
      EXPECT_EQ(apps[i].name, TEXT("name"));
    }
    const host::GateFacts facts = gate().Facts();
    EXPECT_EQ(facts.opens, facts.closes) << c.what;
  }
  // What is left of the question behind a reply is no part of it.
  AnswerWith({pair, 0, 12});
  apps.clear();
  EXPECT_EQ(List(), exceeds);
  EXPECT_TRUE(apps.empty());
}

TEST_F(HostRecords, TextsAreUtf8UpToTheirNul) {
  const std::string name = "\xE6\xBC\xA2 \xF0\x9F\x98\x80 a\xFFz";
  AnswerWith({Items().Text(text, "id").Text(text, name + '\0' + 'b').bytes()});
  EXPECT_EQ(List(), "");
  ASSERT_EQ(apps.size(), 1u);
  EXPECT_EQ(apps[0].name, TEXT("\u6F22 \U0001F600 a\uFFFDz"));
}

TEST_F(HostRecords, DetailsAreSortedByTypeInAnyOrderUntilTheyBreak) {
  using Strings = std::vector<WideString>;
  const Bytes flag = BytesOf({0, 1, 0, 0}), clear = Bytes(4);
  AnswerWith({Items()
                  .Text(6, "mailto")
                  .Add(1, {})
                  .Text(5, "txt")
                  .Add(4, clear)
                  .Text(3, "rtf")
                  .Add(2, BytesOf({'x'}))
                  .Text(3, "doc")
                  .Add(4, flag)
                  .Add(7, BytesOf({'x'}))
                  .Text(6, "ftp")
                  .Text(5, "")
                  .Text(3, "rtf")
                  .bytes()});
  EXPECT_EQ(Details(), "");
  EXPECT_EQ(details.documentTypes, (Strings{TEXT("rtf"), TEXT("doc"), TEXT("rtf")}));
  EXPECT_EQ(details.defaultTypes, (Strings{TEXT("txt"), TEXT("")}));
  EXPECT_EQ(details.urlSchemes, (Strings{TEXT("mailto"), TEXT("ftp")}));
  EXPECT_TRUE(details.anyType);
  AnswerWith({Items().Add(4, flag).Add(4, clear).bytes()});
  EXPECT_EQ(Details(), "");
  EXPECT_FALSE(details.anyType);
  AnswerWith({Items().Add(4, BytesOf({1, 0, 0, 0, 0})).bytes()});
  EXPECT_EQ(Details(), "");
  EXPECT_TRUE(details.anyType);

  struct Case {
    const char* what;
    Bytes data;
    std::string raised;
  };
  const Bytes good = Items().Text(3, "doc").bytes();
  const std::string unterminated = "bit_box: string is not terminated";
  const std::string exceeds = "bit_box: item exceeds its bit_box";
  const Case cases[] = {
      {"short flag", good + Items().Add(4, BytesOf({1, 0, 0})).bytes(), exceeds},
      {"empty flag", good + Items().Add(4, {}).bytes(), exceeds},
      {"type 3 not terminated", good + Items().Add(3, BytesOf({'x'})).bytes(), unterminated},
      {"type 5 not terminated", good + Items().Add(5, BytesOf({'x'})).bytes(), unterminated},
      {"type 6 not terminated", good + Items().Add(6, {}).bytes(), unterminated},
      {"unknown type past the end", good + Claiming(7, 2, BytesOf({'x'})), exceeds},
  };
  for (const Case& c : cases) {
    details = {};
    AnswerWith({c.data});
    EXPECT_EQ(Details(), c.raised) << c.what;
    EXPECT_EQ(details.documentTypes, Strings{TEXT("doc")}) << c.what;
    EXPECT_EQ(Entries() - 1, 0u);
    EXPECT_FALSE(details.anyType);
  }
}

TEST_F(HostRecords, IconsAreBitmapsOnly) {
  const Bytes bitmap = Items().Add(2, TestBitmap(1, 1)).bytes();
  const std::string expected = "mainfo: type WMA_Command::bbt_bitmap expected";
  const std::string exceeds = "bit_box: item exceeds its bit_box";
  const std::pair<Bytes, std::string> cases[] = {
      {{}, noIcons},
      {Items().Add(2, {}).Add(2, Bytes(53)).bytes(), noIcons},
      {bitmap + Items().Add(3, Bytes(1)).bytes(), expected},
      {Items().Add(0, Bytes(1)).bytes() + bitmap, expected},
      {bitmap + Claiming(2, 5, Bytes(4)), exceeds},
  };
  for (const auto& [data, raised] : cases) {
    AnswerWith({data});
    EXPECT_EQ(Icons(), raised);
    const host::GateFacts facts = gate().Facts();
    EXPECT_EQ(facts.opens, facts.closes);
  }
}

}  // namespace
