// The host's answers, byte by byte where the guest depends on them.
#include "host/replies.h"

#include <gtest/gtest.h>

namespace {

using host::Bytes;

void PutItem(Bytes& out, std::uint32_t index, std::uint32_t type, const std::string& value) {
  for (const std::uint32_t number : {index, type, static_cast<std::uint32_t>(value.size())}) {
    host::PutU32(out, number);
  }
  for (const char c : value) out.push_back(static_cast<std::byte>(c));
}

std::string Text(const std::string& text) {
  return text + '\0';
}
std::string Number(std::uint32_t number) {
  Bytes bytes;
  host::PutU32(bytes, number);
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

Bytes Envelope(std::uint32_t code, const Bytes& data, std::uint32_t result = 0, std::uint32_t version = 3) {
  Bytes out;
  for (const std::uint32_t field : {code, version, result, 0u, static_cast<std::uint32_t>(data.size())}) {
    host::PutU32(out, field);
  }
  out.insert(out.end(), data.begin(), data.end());
  return out;
}

Bytes Request(std::uint32_t code, const std::string& argument, std::uint32_t room) {
  Bytes data;
  PutItem(data, 0, 3, Text(argument));
  PutItem(data, 1, 1, Number(room));
  return Envelope(code, data);
}

host::Catalogue TwoApplications() {
  host::Application chess, loom;
  chess.bundleId = "c";
  chess.name = "Caf\xC3\xA9";
  chess.documentTypes = {"pgn", "fen"};
  chess.defaultTypes = {"pgn"};
  chess.urlSchemes = {"chess"};
  chess.icons.resize(2);
  chess.icons[0].bmp = {std::byte{1}, std::byte{2}};
  chess.icons[1].bmp = {std::byte{3}};
  loom.bundleId = "l";
  loom.name = "Loom";
  loom.anyType = true;
  host::Catalogue catalogue;
  catalogue.Add(chess);
  catalogue.Add(loom);
  return catalogue;
}

host::Result ResultOf(const host::Reply& reply) {
  return static_cast<host::Result>(host::GetU32(reply.bytes, 8));
}

TEST(Replies, ListNamesEveryApplicationInPairs) {
  Bytes data;
  PutItem(data, 0, 3, Text("c"));
  PutItem(data, 1, 3, Text("Caf\xC3\xA9"));
  PutItem(data, 2, 3, Text("l"));
  PutItem(data, 3, 3, Text("Loom"));
  EXPECT_EQ(AnswerCommand(TwoApplications(), Request(102, "*", 32748)).bytes, Envelope(102, data));
  EXPECT_EQ(AnswerCommand(host::Catalogue{}, Request(102, "*", 32748)).bytes, Envelope(102, {}));
}

TEST(Replies, DetailsCarryEachKindUnderItsOwnType) {
  Bytes chess, loom;
  PutItem(chess, 0, 3, Text("pgn"));
  PutItem(chess, 1, 3, Text("fen"));
  PutItem(chess, 2, 5, Text("pgn"));
  PutItem(chess, 3, 4, Number(0));
  PutItem(chess, 4, 6, Text("chess"));
  PutItem(loom, 0, 4, Number(1));
  EXPECT_EQ(AnswerCommand(TwoApplications(), Request(104, "c", 32748)).bytes, Envelope(104, chess));
  EXPECT_EQ(AnswerCommand(TwoApplications(), Request(104, "l", 32748)).bytes, Envelope(104, loom));
}

TEST(Replies, IconsGoOutAsTheyAreAndOnlyWhenTheyFit) {
  Bytes data;
  PutItem(data, 0, 2, "\x01\x02");
  PutItem(data, 1, 2, "\x03");
  const auto room = static_cast<std::uint32_t>(data.size());
  EXPECT_EQ(AnswerCommand(TwoApplications(), Request(103, "c", room)).bytes, Envelope(103, data));
  const host::Reply refused = AnswerCommand(TwoApplications(), Request(103, "c", room - 1));
  EXPECT_EQ(ResultOf(refused), host::Result::NoRoom);
  EXPECT_EQ(refused.bytes.size(), 20u);
}

TEST(Replies, WhatCannotBeAnsweredGetsAResult) {
  Bytes unterminated, roomless, overlong;
  PutItem(unterminated, 0, 3, "*");
  PutItem(unterminated, 1, 1, Number(100));
  PutItem(roomless, 0, 3, Text("*"));
  PutItem(overlong, 0, 3, Text("*"));
  PutItem(overlong, 1, 1, Number(100));
  PutItem(overlong, 2, 1, Number(100));
  Bytes pastItsEnd = Request(102, "*", 100);
  pastItsEnd[28] = std::byte{200};  // the first item's size
  Bytes shorter = Request(102, "*", 100);
  shorter.pop_back();  // the header still counts it
  Bytes room;
  PutItem(room, 0, 3, Text("*"));
  PutItem(room, 1, 1, Number(100));
  const struct {
    const char* what;
    Bytes request;
    host::Result result;
  } cases[] = {
      {"an unknown application", Request(104, "x", 100), host::Result::UnknownApplication},
      {"another pattern", Request(102, "c", 100), host::Result::BadRequest},
      {"an unknown command", Request(105, "c", 100), host::Result::BadRequest},
      {"another version", Envelope(102, room, 0, 2), host::Result::BadRequest},
      {"a text without its NUL", Envelope(102, unterminated), host::Result::BadRequest},
      {"no room given", Envelope(102, roomless), host::Result::BadRequest},
      {"an item too many", Envelope(102, overlong), host::Result::BadRequest},
      {"an item past the end", pastItsEnd, host::Result::BadRequest},
      {"data past the end", shorter, host::Result::BadRequest},
      {"an announcement of something else", Envelope(100, {std::byte{2}}), host::Result::BadRequest},
      {"the announcement", Envelope(100, {std::byte{1}}), host::Result::Done},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    const host::Reply reply = AnswerCommand(TwoApplications(), each.request);
    ASSERT_EQ(reply.bytes.size(), 20u);
    EXPECT_EQ(ResultOf(reply), each.result);
  }
}

}  // namespace
