// The questions, and the guest's state around them.
#include "trials/exchanges.h"

#include <platform/control.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>

#include "channel/mainfo.h"
#include "guest/guest_view.h"
#include "stub/stub.h"

namespace trials {
namespace {

const MacAppInfo app{TEXT("test.app"), TEXT("App")};
const std::string launcher = "C:\\launcher.exe";

// Writes the icons into a new launcher.
std::vector<host::LauncherIcon> AskForIcons() {
  static const std::string stub = TextOf(stub::MakeTemplateStub());
  PutFile(launcher, stub);
  const HANDLE update = BeginUpdateResourceW(host::Widen(launcher).c_str(), FALSE);
  try {
    WriteMacAppIcons(update, app);
  } catch (const std::exception&) {
    EndUpdateResourceW(update, TRUE);
    throw;
  }
  if (!EndUpdateResourceW(update, FALSE)) throw std::runtime_error("the update cannot be committed");
  return host::ReadLauncherFile(launcher).icons;
}

Taken Ask(Kind kind) {
  Taken taken;
  MacAppInfoList apps;
  MacAppDetails details;
  try {
    if (kind == Kind::List) GetMacAppList(TEXT("*"), apps);
    if (kind == Kind::Details) GetMacAppDetails(app, details);
    if (kind == Kind::Icons) taken.icons = AskForIcons();
  } catch (const std::exception& failure) {
    const std::string text = failure.what();
    const std::size_t place = text.find(": ");
    taken.raised = place == std::string::npos ? text : text.substr(place + 2);
  }
  taken.texts = std::move(details.documentTypes);
  for (MacAppInfo& each : apps) {
    taken.texts.push_back(std::move(each.bundleId));
    taken.texts.push_back(std::move(each.name));
  }
  taken.defaults = std::move(details.defaultTypes);
  taken.schemes = std::move(details.urlSchemes);
  taken.anyType = details.anyType;
  return taken;
}

}  // namespace

std::filesystem::path HostFile(const std::string& guestPath) {
  std::string below = guestPath.substr(3);
  std::replace(below.begin(), below.end(), '\\', '/');
  return (platform::GuestRoot() / below).lexically_normal();
}

void PutFile(const std::string& guestPath, const std::string& bytes) {
  std::filesystem::create_directories(HostFile(guestPath).parent_path());
  std::ofstream(HostFile(guestPath), std::ios::binary) << bytes;
}

Exchanges::Exchanges(const std::filesystem::path& guest) {
  platform::SetGuestRoot(guest);
  gate_ = host::CreateGate();
  gate_->Serve([this](std::span<const std::byte> envelope) {
    request_.assign(envelope.begin(), envelope.end());
    return reply_;
  });
}

std::string Exchanges::Try(Kind kind, const host::Reply& reply, std::uint32_t systemError) {
  reply_ = reply;
  if (systemError != 0) gate_->FailNext({.request = host::sendCommand, .systemError = systemError});
  const Taken taken = Ask(kind);
  raised_ = taken.raised;
  const Taken expected = Expect(kind, reply, systemError != 0, request_);
  if (taken.raised != expected.raised) {
    return "raised \"" + taken.raised + "\" instead of \"" + expected.raised + "\"";
  }
  if (taken != expected) return "took over something else than the reply holds";
  const auto census = platform::Census();
  if (!census.empty()) return "left open: " + census.begin()->first;
  const host::GateFacts facts = gate_->Facts();
  if (facts.opens != facts.closes) return "left the device open";
  return facts.breaches.empty() ? "" : "broke the gate's contract: " + facts.breaches.front();
}

}  // namespace trials
