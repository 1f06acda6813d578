// Numbers of envelopes, items and bitmap headers take every value, the bytes of texts and pixels those values
// that are special to some reader.
#include "torture/mutations.h"

#include <algorithm>
#include <iostream>
#include <set>

#include "host/catalogue.h"
#include "host/text.h"
#include "torture/exchanges.h"

namespace torture {
namespace {

using host::Bytes;

constexpr std::size_t headerSize = 20, itemHeaderSize = 12, bitmapHeaderSize = 54;

// The offsets of all numbers in a reply.
std::set<std::size_t> Numbers(Kind kind, const Bytes& reply) {
  std::set<std::size_t> offsets;
  const auto add = [&](std::size_t start, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) offsets.insert(start + i);
  };
  add(0, headerSize);
  for (std::size_t at = headerSize; at < reply.size(); at += itemHeaderSize + host::GetU32(reply, at + 8)) {
    add(at, itemHeaderSize + (kind == Kind::Icons ? bitmapHeaderSize : 0));
  }
  return offsets;
}

std::set<std::byte> ValuesFor(std::byte old, bool all) {
  std::set<std::byte> values;
  if (all) {
    for (int value = 0; value < 256; ++value) values.insert(static_cast<std::byte>(value));
  } else {
    for (const int value : {0x00, 0x01, 0x7F, 0x80, 0xFF}) values.insert(static_cast<std::byte>(value));
    values.insert({old ^ std::byte{0x01}, old ^ std::byte{0x80}});
  }
  values.erase(old);
  return values;
}

class Campaign {
 public:
  explicit Campaign(const std::filesystem::path& guest) : exchanges_(guest) {}

  void Run(const char* name, Kind kind, const Bytes& reply) {
    kind_ = kind;
    name_ = name;
    tried_ = taken_ = 0;
    Try(reply, "unchanged");
    if (taken_ != 1) Tell("unchanged", "a real reply is refused: " + exchanges_.raised());
    const std::set<std::size_t> numbers = Numbers(kind, reply);
    for (std::size_t at = 0; at < reply.size(); ++at) {
      for (const std::byte value : ValuesFor(reply[at], numbers.contains(at))) {
        Bytes changed = reply;
        changed[at] = value;
        Try(changed, "byte " + std::to_string(at) + " as " + std::to_string(static_cast<int>(value)));
      }
    }
    const std::size_t mutations = tried_ - 1;
    for (std::size_t size = 0; size < reply.size(); ++size) {
      Bytes cut(reply.begin(), reply.begin() + static_cast<std::ptrdiff_t>(size));
      Try(cut, "cut to " + std::to_string(size) + " bytes");
      if (size < headerSize) continue;
      Bytes count;
      host::PutU32(count, static_cast<std::uint32_t>(size - headerSize));
      std::ranges::copy(count, cut.begin() + headerSize - 4);
      Try(cut, "cut to " + std::to_string(size) + " bytes, and saying so");
    }
    std::cout << name << ": " << host::WithThousands(reply.size()) << " bytes, "
              << host::WithThousands(mutations) << " mutations, "
              << host::WithThousands(tried_ - 1 - mutations) << " truncations; "
              << host::WithThousands(taken_) << " taken, " << host::WithThousands(tried_ - taken_)
              << " refused" << std::endl;
  }

  bool passed() const { return faults_ == 0; }

 private:
  void Try(const Bytes& reply, const std::string& what) {
    ++tried_;
    const std::string wrong = exchanges_.Try(kind_, {.bytes = reply});
    if (exchanges_.raised().empty()) ++taken_;
    if (!wrong.empty()) Tell(what, wrong);
  }

  void Tell(const std::string& what, const std::string& wrong) {
    constexpr std::size_t mostTold = 20;
    if (++faults_ <= mostTold) std::cerr << name_ << ", " << what << ": " << wrong << "\n";
  }

  Exchanges exchanges_;
  Kind kind_ = Kind::List;
  const char* name_ = "";
  std::size_t tried_ = 0, taken_ = 0, faults_ = 0;
};

// The application with the longest details, with pictures of one size, each also in a kind that is refused.
host::Application Richest(const host::Catalogue& catalogue) {
  const auto& apps = catalogue.applications();
  const auto entries = [](const host::Application& app) {
    return app.documentTypes.size() + app.defaultTypes.size() + app.urlSchemes.size();
  };
  host::Application app = *std::ranges::max_element(apps, {}, entries);
  std::erase_if(app.icons, [](const host::Icon& icon) { return icon.size != 16; });
  for (const auto& icon : std::vector(app.icons)) app.icons.push_back(host::RefusedIcon(icon));
  return app;
}

}  // namespace

bool Mutations(const std::filesystem::path& catalogue, const std::filesystem::path& guest) {
  const auto all = host::Catalogue::Load(catalogue);
  const host::Application richest = Richest(all);
  host::Catalogue one;
  one.Add(richest);
  Campaign campaign(guest);
  campaign.Run("list", Kind::List, RealReply(Kind::List, all, "*"));
  campaign.Run("details", Kind::Details, RealReply(Kind::Details, one, richest.bundleId));
  campaign.Run("icons", Kind::Icons, RealReply(Kind::Icons, one, richest.bundleId));
  return campaign.passed();
}

}  // namespace torture
