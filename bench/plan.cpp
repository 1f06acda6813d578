#include "plan.h"

#include "channel/tool_gate.h"
#include "common/host_application.h"
#include "launcher/bmp2ico.h"
#include "launcher/fs.h"
#include "launcher/resop.h"
#include "registry/registry_names.h"

namespace bench {
namespace {

host::Bytes TextBytes(const WideString& text) {
  const auto bytes = std::as_bytes(std::span(text.c_str(), text.size() + 1));
  return {bytes.begin(), bytes.end()};
}

host::Bytes Group(const std::vector<host::Bytes>& images) {
  host::Bytes group;
  for (const std::size_t field : {std::size_t{0}, std::size_t{1}, images.size()})
    host::PutU16(group, static_cast<std::uint32_t>(field));
  for (std::size_t i = 0; i < images.size(); ++i) {
    group.insert(group.end(), {images[i][4], images[i][4], std::byte{0}, std::byte{0}});
    host::PutU16(group, 1);
    host::PutU16(group, 32);
    host::PutU32(group, static_cast<std::uint32_t>(images[i].size()));
    host::PutU16(group, static_cast<std::uint32_t>(IconGroupId + 1 + i));
  }
  return group;
}

host::Bytes Version(const WideString& app) {
  const WideString shared = TEXT("Tessarine Shared Application");
  return BuildVersionInfo({0x10000, 0, 0x10000, 0, 0x20, 0x20, 4, 1, 0, 0, 0},
                          {{TEXT("Comments"), shared},
                           {TEXT("CompanyName"), TEXT("Tessarine Software International, Inc.")},
                           {TEXT("FileDescription"), app},
                           {TEXT("FileVersion"), TEXT("1.0.0.0")},
                           {TEXT("ProductName"), TEXT("Tessarine Tools Center")},
                           {TEXT("SpecialBuild"), shared}},
                          {{0x0409, 0x04B0}});
}

Plan PlanFor(const host::Application& application) {
  const WideString name = Utf8ToWide(application.name), folder = LauncherFolder();
  Plan plan;
  plan.app = FullName(name);
  plan.exe = LauncherExe(plan.app);
  plan.launcher = JoinPath(folder, plan.exe);
  plan.link = ShortcutPath(plan.app);
  plan.appKey = ApplicationKey(plan.app);
  plan.appCommand = plan.appKey + commandSubkey;
  plan.supportedTypes = plan.appKey + TEXT("\\SupportedTypes");
  plan.supportedProtocols = plan.appKey + TEXT("\\SupportedProtocols");
  plan.progId = UrlProgId(plan.app);
  plan.progIdKey = ClassKey(plan.progId);
  plan.progIdCommand = plan.progIdKey + commandSubkey;
  plan.macApps = MacAppsSubkey(plan.app);
  plan.macAppsKey = toolsKey + TEXT("\\") + plan.macApps;
  plan.capabilities = CapabilitiesKey(plan.app);
  plan.urlAssociations = plan.capabilities + TEXT("\\URLAssociations");
  plan.openCommand = OpenCommand(plan.launcher);
  plan.urlCommand = UrlCommand(folder, plan.app);
  plan.iconsRequest = Request(CmdGetAppIcons, application.bundleId, iconsBuffer);
  plan.detailsRequest = Request(CmdGetAppDetails, application.bundleId, recordsBuffer);
  plan.bundleId = TextBytes(Utf8ToWide(application.bundleId));
  plan.name = TextBytes(name);
  plan.version = Version(plan.app);
  for (const host::Icon& icon : application.icons) plan.images.push_back(BitmapToIcon(icon.bmp, false));
  plan.group = Group(plan.images);
  for (const auto* texts : {&application.documentTypes, &application.defaultTypes, &application.urlSchemes})
    plan.detailed.insert(plan.detailed.end(), texts->begin(), texts->end());
  for (const std::string& type : application.documentTypes) {
    const WideString extension = Utf8ToWide(type);
    plan.offers.push_back(ExtensionKey(extension) + TEXT("\\OpenWithList\\") + plan.exe);
    plan.dotted.push_back(TEXT(".") + extension);
  }
  for (const std::string& type : application.defaultTypes) {
    const WideString extension = Utf8ToWide(type), progId = AutoFileProgId(extension);
    plan.claims.push_back({TEXT(".") + extension, progId, ClassKey(progId), ClassKey(progId) + commandSubkey,
                           ExtensionKey(extension) + TEXT("\\OpenWithProgids\\")});
  }
  for (const std::string& text : application.urlSchemes) {
    const WideString scheme = Utf8ToWide(text);
    plan.schemes.push_back({scheme, ClassKey(scheme), SchemeDescription(scheme)});
  }
  return plan;
}

}  // namespace

host::Bytes Request(std::uint32_t code, const std::string& argument, std::size_t bufferSize) {
  const auto room = static_cast<std::uint32_t>(bufferSize - host::envelopeHeader);
  return host::Envelope(code,
                        host::Items().Text(host::textItem, argument).Number(host::numberItem, room).bytes());
}

std::vector<Plan> PlansFor(const std::vector<host::Application>& applications) {
  std::vector<Plan> plans;
  for (const host::Application& application : applications) plans.push_back(PlanFor(application));
  return plans;
}

}  // namespace bench
