// Every single-byte change and every truncation of a real reply of each kind, through the module's own
// exchange with the gate.
#include <algorithm>

#include "trials/exchanges.h"
#include "trials/trials.h"

namespace trials {
namespace {

using host::Bytes;

struct Mutation {
  std::string figure, place;
  Bytes reply;
};

std::vector<Mutation> MutationsAt(const Bytes& reply, std::size_t at) {
  std::vector<Mutation> all;
  const std::string place = std::to_string(at);
  for (unsigned value = 0; value < 256; ++value) {
    Bytes changed = reply;
    changed[at] = static_cast<std::byte>(value);
    if (changed != reply) all.push_back({"changed bytes", place + " is " + std::to_string(value), changed});
  }
  const auto cut = std::span(reply).first(at);
  all.push_back({"truncations", place + " is missing", {cut.begin(), cut.end()}});
  if (at >= host::envelopeHeader) {
    all.push_back({"truncations that say so", place + " is missing, as is said",
                   host::Envelope(host::GetU32(cut, 0), cut.subspan(host::envelopeHeader))});
  }
  return all;
}

// The application with the longest details, with pictures of one size, each also in a kind that is refused.
host::Catalogue Richest(const host::Catalogue& catalogue) {
  const auto entries = [](const host::Application& app) {
    return app.documentTypes.size() + app.defaultTypes.size() + app.urlSchemes.size();
  };
  host::Application app = *std::ranges::max_element(catalogue.applications(), {}, entries);
  std::erase_if(app.icons, [](const host::Icon& icon) { return icon.size != 16; });
  for (const auto& icon : std::vector(app.icons)) app.icons.push_back(host::RefusedIcon(icon));
  host::Catalogue one;
  one.Add(app);
  return one;
}

}  // namespace

Tally TryMutations(const Options& options) {
  const host::Catalogue one = Richest(options.catalogue);
  const std::string id = one.applications()[0].bundleId;
  const std::pair<Kind, Bytes> replies[] = {{Kind::List, RealReply(Kind::List, options.catalogue, "*")},
                                            {Kind::Details, RealReply(Kind::Details, one, id)},
                                            {Kind::Icons, RealReply(Kind::Icons, one, id)}};
  return RunCrew(options.folder, options.jobs, [&](std::size_t job, Report& report) {
    Exchanges exchanges(options.folder / std::to_string(job));
    std::size_t number = 0;
    for (const auto& [kind, reply] : replies) {
      const std::string name = "reply " + std::to_string(static_cast<std::uint32_t>(kind)) + ", ";
      report.Trial(name + "unchanged");
      const std::string wrong = exchanges.Try(kind, {.bytes = reply});
      if (!wrong.empty() || !exchanges.raised().empty()) report.Fail(wrong + exchanges.raised());
      if (job == 0) report.Count("bytes of real replies", reply.size());
      for (std::size_t at = 0; at < reply.size(); ++at) {
        for (const Mutation& mutation : MutationsAt(reply, at)) {
          if (!options.IsFor(job, ++number)) continue;
          report.Trial(name + mutation.place);
          const std::string failure = exchanges.Try(kind, {.bytes = mutation.reply});
          if (!failure.empty()) report.Fail(failure);
          report.Count(mutation.figure);
          report.Count(exchanges.raised().empty() ? "replies taken" : "replies refused");
        }
      }
    }
  });
}

}  // namespace trials
