// Every single-byte change and every truncation of a real reply of each kind, through the module's own
// exchange with the gate. Numbers of envelopes, items and bitmap headers take every value, the bytes of texts
// and pixels those values that are special to some reader.
#include <algorithm>
#include <set>

#include "host/catalogue.h"
#include "trials/exchanges.h"
#include "trials/trials.h"

namespace trials {
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

// One job's share of the changes of every reply.
class Campaign {
 public:
  Campaign(const Options& options, std::size_t job, Report& report)
      : options_(options), job_(job), report_(report), exchanges_(options.folder / std::to_string(job)) {}

  void Run(const char* name, Kind kind, const Bytes& reply) {
    kind_ = kind;
    name_ = name;
    report_.Trial(name_ + ", unchanged");
    const std::string wrong = exchanges_.Try(kind, {.bytes = reply});
    if (!wrong.empty() || !exchanges_.raised().empty()) report_.Fail(wrong + exchanges_.raised());
    if (job_ == 0) report_.Count("bytes of real replies", reply.size());

    const std::set<std::size_t> numbers = Numbers(kind, reply);
    for (std::size_t at = 0; at < reply.size(); ++at) {
      for (const std::byte value : ValuesFor(reply[at], numbers.contains(at))) {
        Bytes changed = reply;
        changed[at] = value;
        Try(changed, "changed bytes", at, std::to_integer<int>(value));
      }
    }
    for (std::size_t size = 0; size < reply.size(); ++size) {
      Bytes cut(reply.begin(), reply.begin() + static_cast<std::ptrdiff_t>(size));
      Try(cut, "truncations", size, 0);
      if (size < headerSize) continue;
      Bytes count;
      host::PutU32(count, static_cast<std::uint32_t>(size - headerSize));
      std::ranges::copy(count, cut.begin() + headerSize - 4);
      Try(cut, "truncations that say so", size, 0);
    }
  }

 private:
  void Try(const Bytes& reply, const std::string& kind, std::size_t at, int value) {
    const std::size_t number = ++made_;
    if (number % options_.every != 0 || number / options_.every % options_.jobs != job_) return;
    report_.Trial(name_ + ", " + kind + ": " + std::to_string(at) + ", " + std::to_string(value));
    const std::string wrong = exchanges_.Try(kind_, {.bytes = reply});
    report_.Count(kind);
    report_.Count(exchanges_.raised().empty() ? "replies taken" : "replies refused");
    if (!wrong.empty()) report_.Fail(wrong);
  }

  const Options& options_;
  const std::size_t job_;
  Report& report_;
  Exchanges exchanges_;
  Kind kind_ = Kind::List;
  std::string name_;
  std::size_t made_ = 0;
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

Tally TryMutations(const Options& options) {
  return RunCrew(options.jobs, [&](std::size_t job, Report& report) {
    const host::Application richest = Richest(options.catalogue);
    host::Catalogue one;
    one.Add(richest);
    Campaign campaign(options, job, report);
    campaign.Run("list", Kind::List, RealReply(Kind::List, options.catalogue, "*"));
    campaign.Run("details", Kind::Details, RealReply(Kind::Details, one, richest.bundleId));
    campaign.Run("icons", Kind::Icons, RealReply(Kind::Icons, one, richest.bundleId));
  });
}

}  // namespace trials
