// What was said, by the names of its fields, and what is said of envelopes that cannot be read to their end.
#include "host/conversation.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "host/replies.h"
#include "host/wire.h"

namespace {

using host::Direction;
using Fields = std::vector<std::pair<std::string, std::string>>;

host::Bytes Cut(host::Bytes bytes, std::size_t less) {
  bytes.resize(bytes.size() - less);
  return bytes;
}

TEST(Conversation, NamesEveryFieldAndSaysWhereReadingEnds) {
  using host::Envelope;
  const auto request = [](std::uint32_t code, const char* argument) {
    return Envelope(code, host::Items().Text(3, argument).Number(1, 32748).bytes());
  };
  const Fields loom{{"bundleId", "example.loom"}, {"name", "Loom"}};
  const auto list = host::Items().Text(3, "example.loom").Text(3, "Loom").bytes();
  const auto details = host::Items().Text(3, "pgn").Text(5, "fen").Number(4, 1).Text(6, "chess").bytes();
  const Fields named{
      {"documentType", "pgn"}, {"defaultType", "fen"}, {"anyType", "1"}, {"urlScheme", "chess"}};
  const auto icon = host::Items().Add(2, host::BlankBitmap(48, 32)).bytes();
  auto behind = list;  // three bytes that are no item
  behind.resize(behind.size() + 3);
  constexpr auto command = Direction::Command, asked = Direction::Request, reply = Direction::Reply;
  const struct {
    Direction direction;
    host::Bytes envelope;
    const char* code;
    Fields items;
    const char* fault = "";
  } cases[] = {
      {command, host::SharingCommand(true), "sharing", {{"sharing", "on"}}},
      {command, host::SharingCommand(false), "sharing", {{"sharing", "off"}}},
      {command, host::AnnounceCommand(), "announce", {}},
      {asked, host::SharingCommand(true), "sharing", {{"announcement", "on"}}},
      {asked, request(102, "*"), "list", {{"pattern", "*"}, {"room", "32748"}}},
      {asked, request(103, "a.b"), "icons", {{"bundleId", "a.b"}, {"room", "32748"}}},
      {reply, Envelope(102, list), "list", loom},
      {reply, Envelope(104, details), "details", named},
      {reply, Envelope(103, icon), "icons", {{"icon", "48 x 32, 32 bits, 6,198 bytes"}}},
      {reply, Envelope(7, host::Items().Number(9, 0).bytes()), "7", {{"type 9", "4 bytes"}}},
      {reply, host::Bytes(19), "0", {}, "the envelope is shorter than its header"},
      {reply, Cut(Envelope(102, list), 1), "list", {}, "of 42 bytes of data 41 are there"},
      {reply, Envelope(102, behind), "list", loom, "item 2 exceeds the data"},
  };
  for (const auto& each : cases) {
    const host::Message message = host::ReadMessage(each.direction, each.envelope);
    SCOPED_TRACE(std::string(each.code) + " " + each.fault);
    EXPECT_EQ(host::NameOfCode(message.code), each.code);
    EXPECT_EQ(message.items, each.items);
    EXPECT_EQ(message.fault, each.fault);
  }
}

TEST(Conversation, TellsEveryListenerInOrder) {
  host::Conversation conversation;
  nlohmann::json heard, alsoHeard;
  conversation.Listen([&](const host::Exchange& exchange) { heard.push_back(host::Described(exchange)); });
  conversation.Listen(
      [&](const host::Exchange& exchange) { alsoHeard.push_back(host::Described(exchange)); });
  conversation.BeginStep("on");
  conversation.Hear(Direction::Command, host::SharingCommand(true));
  conversation.Hear(Direction::Reply, host::Envelope(104, {}, 3), 7);
  EXPECT_EQ(heard, alsoHeard);
  EXPECT_LE(heard.at(0)["ms"], heard.at(1)["ms"]);
  for (auto& each : heard) each.erase("ms");
  EXPECT_EQ(heard, nlohmann::json::parse(R"([
    {"step": "on", "direction": "command", "code": "sharing", "size": 21, "status": 0, "result": 0,
     "items": [["sharing", "on"]]},
    {"step": "on", "direction": "reply", "code": "details", "size": 20, "status": 7, "result": 3, "items": []}
  ])"));
}

}  // namespace
