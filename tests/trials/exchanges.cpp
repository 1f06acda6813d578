// The questions, and the guest's state around them.
#include "trials/exchanges.h"

#include <platform/control.h>

#include <fstream>
#include <stdexcept>

#include "channel/mainfo.h"
#include "common/handles.h"
#include "launcher/resop.h"
#include "stub/stub.h"

namespace trials {
namespace {

const MacAppInfo app{TEXT("test.app"), TEXT("App")};
constexpr const WCHAR* launcherPath = TEXT("C:\\launcher.exe");

void WriteHostFile(const std::filesystem::path& path, const host::Bytes& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

host::Bytes ReadHostFile(const std::filesystem::path& path) {
  host::Bytes bytes(std::filesystem::file_size(path));
  std::ifstream in(path, std::ios::binary);
  in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return bytes;
}

host::Bytes ReadResource(HMODULE module, LPCWSTR type, WORD name, WORD language) {
  const HRSRC found = FindResourceExW(module, type, MAKEINTRESOURCEW(name), language);
  if (!found) return {};
  const auto* data = static_cast<const std::byte*>(LockResource(LoadResource(module, found)));
  return {data, data + SizeofResource(module, found)};
}

struct IconReader {
  static BOOL CALLBACK Visit(HMODULE module, LPCWSTR type, LPWSTR name, LONG_PTR icons) {
    const auto id = static_cast<WORD>(reinterpret_cast<ULONG_PTR>(name));
    (*reinterpret_cast<std::map<WORD, host::Bytes>*>(icons))[id] =
        ReadResource(module, type, id, languageDefault);
    return TRUE;
  }
};

// A list of one application, and no details.
Misdeed GoodReply(Kind kind) {
  Misdeed good;
  const std::string_view data("\0\0\0\0\3\0\0\0\3\0\0\0id\0\1\0\0\0\3\0\0\0\2\0\0\0n\0", 29);
  const auto size = kind == Kind::List ? static_cast<std::uint32_t>(data.size()) : 0u;
  for (const std::uint32_t field : {static_cast<std::uint32_t>(kind), 3u, 0u, 0u, size})
    host::PutU32(good.bytes, field);
  const auto bytes = std::as_bytes(std::span(data)).first(size);
  good.bytes.insert(good.bytes.end(), bytes.begin(), bytes.end());
  return good;
}

}  // namespace

Exchanges::Exchanges(const std::filesystem::path& guest) : launcher_(guest / "launcher.exe") {
  platform::SetGuestRoot(guest);
  stub_ = stub::MakeTemplateStub();
  WriteHostFile(launcher_, stub_);
  gate_ = host::CreateGate();
  gate_->Serve([this](std::span<const std::byte> envelope) {
    request_.assign(envelope.begin(), envelope.end());
    return host::Reply{.bytes = misdeed_->bytes, .returned = misdeed_->returned};
  });
}

void Exchanges::AskForIcons(Taken& taken) {
  const HANDLE update = BeginUpdateResourceW(launcherPath, FALSE);
  try {
    WriteMacAppIcons(update, app);
  } catch (const std::exception&) {
    EndUpdateResourceW(update, TRUE);
    throw;
  }
  if (!EndUpdateResourceW(update, FALSE)) throw std::runtime_error("the update cannot be committed");
  const UniqueModule launcher(LoadLibraryExW(launcherPath, nullptr, LOAD_LIBRARY_AS_DATAFILE));
  EnumResourceNamesW(launcher.get(), RT_ICON, IconReader::Visit, reinterpret_cast<LONG_PTR>(&taken.icons));
  taken.icons[IconGroupId] = ReadResource(launcher.get(), RT_GROUP_ICON, IconGroupId, languageDefault);
  if (ReadResource(launcher.get(), RT_RCDATA, 1, languageNeutral).size() != 8) {
    throw std::runtime_error("the launcher's own resource is lost");
  }
}

Taken Exchanges::Ask(Kind kind, const Misdeed& misdeed) {
  misdeed_ = &misdeed;
  if (misdeed.systemError != 0) {
    gate_->FailNext({.request = host::sendCommand, .systemError = misdeed.systemError});
  }
  Taken taken;
  MacAppInfoList apps;
  MacAppDetails details;
  try {
    if (kind == Kind::List) GetMacAppList(TEXT("*"), apps);
    if (kind == Kind::Details) GetMacAppDetails(app, details);
    if (kind == Kind::Icons) AskForIcons(taken);
  } catch (const std::exception& failure) {
    const std::string text = failure.what();
    const std::size_t place = text.find(": ");
    taken.raised = place == std::string::npos ? text : text.substr(place + 2);
  }
  for (MacAppInfo& each : apps) {
    taken.texts.push_back(std::move(each.bundleId));
    taken.texts.push_back(std::move(each.name));
  }
  if (kind == Kind::Details) taken.texts = std::move(details.documentTypes);
  taken.defaults = std::move(details.defaultTypes);
  taken.schemes = std::move(details.urlSchemes);
  taken.anyType = details.anyType;
  return taken;
}

std::string Exchanges::Check(Kind kind, const Misdeed& misdeed) {
  const Taken taken = Ask(kind, misdeed);
  raised_ = taken.raised;
  const Taken expected = Expect(kind, misdeed, request_);
  if (taken.raised != expected.raised) {
    return "raised \"" + taken.raised + "\" instead of \"" + expected.raised + "\"";
  }
  if (kind == Kind::Icons) {
    if (!taken.raised.empty() && ReadHostFile(launcher_) != stub_) return "a failed update changed its file";
    if (taken.raised.empty()) WriteHostFile(launcher_, stub_);
  }
  if (taken != expected) return "took over something else than the reply holds";
  const auto census = platform::Census();
  if (!census.empty()) return "left open: " + census.begin()->first;
  const host::GateFacts facts = gate_->Facts();
  if (facts.opens != facts.closes) return "left the device open";
  return facts.breaches.empty() ? "" : "broke the gate's contract: " + facts.breaches.front();
}

std::string Exchanges::Try(Kind kind, const Misdeed& misdeed) {
  std::string wrong = Check(kind, misdeed);
  const std::string raised = raised_;
  const Kind next = kind == Kind::Icons ? Kind::List : kind;
  if (wrong.empty()) wrong = Check(next, GoodReply(next));
  if (wrong.empty() && !raised_.empty()) wrong = "the next question raised " + raised_;
  raised_ = raised;
  return wrong;
}

}  // namespace trials
