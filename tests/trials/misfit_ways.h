// The ways in which an application of a hostile host can be wrong: its entry in the list, its icons, its
// details, or the requests for them. Everything that is the misfit's own says "isfit" somewhere.
#pragma once

#include <functional>

#include "host/gate.h"
#include "trials/expectations.h"

namespace trials {

inline host::Bytes BytesOf(std::string_view text) {
  const auto bytes = std::as_bytes(std::span(text));
  return {bytes.begin(), bytes.end()};
}

struct Way {
  using Bend = std::function<void(host::Reply&)>;
  std::string what;
  Bend icons{}, details{};                               // change the reply to the misfit's request
  Kind failing = Kind::List;                             // whose control call fails; a list: none
  host::Bytes id = BytesOf(std::string("misfit\0", 7));  // the list's entry, as it is on the wire
  host::Bytes name = BytesOf(std::string("Misfit\0", 7));
  bool unnamed = false;  // its name makes no file, so that no request is about it
};

std::vector<Way> AllWays();

std::vector<Item> GoodIcons();
std::vector<Item> GoodDetails();
host::Bytes SmallBitmap();  // a 16 by 16 bitmap that the guest takes
host::Bytes EnvelopeOf(const std::vector<Item>& items);
std::string Text(const host::Bytes& value);  // up to its NUL

}  // namespace trials
