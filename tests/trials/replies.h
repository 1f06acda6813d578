// What the guest must make of a host's reply, derived once more from the published encoding and from the
// reply's bytes alone: nothing here uses the module's code.
#pragma once

#include <windows.h>

#include <string>

#include "guest/launcher_view.h"
#include "host/catalogue.h"
#include "host/driver/gate.h"

namespace trials {

enum class Kind : std::uint32_t { List = 102, Icons = 103, Details = 104 };

// The data bytes that a reply may have.
constexpr std::uint32_t RoomOf(Kind kind) {
  return kind == Kind::Icons ? 277764 : 32748;
}

// What the guest takes over from a reply.
struct Taken {
  using Texts = std::vector<std::basic_string<WCHAR>>;
  std::string raised{};                     // the message without its place; empty when nothing is raised
  Texts texts{};                            // a list's identifiers and names in turn, or document types
  Texts defaults{};                         // default types
  Texts schemes{};                          // URL schemes
  bool anyType = false;                     // offered for every type
  std::vector<host::LauncherIcon> icons{};  // when nothing is raised
  bool operator==(const Taken&) const = default;
};

// The items of `data` up to its end or to the first that does not fit; true when all fit.
bool SplitItems(std::span<const std::byte> data, std::vector<host::Item>& items);

std::string TextOf(std::span<const std::byte> bytes);

// The icon image of a bitmap file; empty, or the message with which the bitmap is refused.
std::string ExpectIcon(std::span<const std::byte> bitmap, bool buildMask, host::Bytes& icon);

// The simulated host's answer to one question.
host::Bytes RealReply(Kind kind, const host::Catalogue& catalogue, const std::string& argument);

// `request` is the whole envelope over which the reply is written; `fails`: the control call does.
Taken Expect(Kind kind, const host::Reply& reply, bool fails, host::Bytes request);

}  // namespace trials
