// Every single-byte change and every truncation of a real reply of each kind, through the module's own
// exchange with the gate.
#include <algorithm>

#include "trials/exchanges.h"
#include "trials/trials.h"

namespace trials {
namespace {

using host::Bytes;

// One job's share of the changes of every reply.
class Campaign {
 public:
  Campaign(const Options& options, std::size_t job, Report& report)
      : options_(options), job_(job), report_(report), exchanges_(options.folder / std::to_string(job)) {}

  void Run(const std::string& name, Kind kind, const Bytes& reply) {
    report_.Trial(name + ", unchanged");
    const std::string wrong = exchanges_.Try(kind, {.bytes = reply});
    if (!wrong.empty() || !exchanges_.raised().empty()) report_.Fail(wrong + exchanges_.raised());
    if (job_ == 0) report_.Count("bytes of real replies", reply.size());

    for (std::size_t at = 0; at < reply.size(); ++at) {
      const std::string place = name + ", " + std::to_string(at);
      for (unsigned value = 0; value < 256; ++value) {
        Bytes changed = reply;
        changed[at] = static_cast<std::byte>(value);
        if (changed != reply) Try(kind, changed, "changed bytes", place + " is " + std::to_string(value));
      }
      const auto cut = std::span(reply).first(at);
      Try(kind, {cut.begin(), cut.end()}, "truncations", place + " is missing");
      if (at < host::envelopeHeader) continue;
      Try(kind, host::Envelope(host::GetU32(cut, 0), cut.subspan(host::envelopeHeader)),
          "truncations that say so", place + " is missing, as is said");
    }
  }

 private:
  void Try(Kind kind, const Bytes& reply, const std::string& figure, const std::string& trial) {
    if (!options_.IsFor(job_, ++made_)) return;
    report_.Trial(trial);
    const std::string wrong = exchanges_.Try(kind, {.bytes = reply});
    report_.Count(figure);
    report_.Count(exchanges_.raised().empty() ? "replies taken" : "replies refused");
    if (!wrong.empty()) report_.Fail(wrong);
  }

  const Options& options_;
  const std::size_t job_;
  Report& report_;
  Exchanges exchanges_;
  std::size_t made_ = 0;
};

// The application with the longest details, with pictures of one size, each also in a kind that is refused.
host::Application Richest(const host::Catalogue& catalogue) {
  const auto entries = [](const host::Application& app) {
    return app.documentTypes.size() + app.defaultTypes.size() + app.urlSchemes.size();
  };
  host::Application app = *std::ranges::max_element(catalogue.applications(), {}, entries);
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
