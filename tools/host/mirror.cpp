// Names and keys are those that a mirrored application has by contract.
#include "host/mirror.h"

#include <algorithm>
#include <array>

#include "guest/places.h"

namespace host {
namespace {

// Executables, scripts, installers, links and icons never get a launcher's offer.
bool IsBlackListed(const std::string& type) {
  constexpr std::array refused = {"lnk", "exe", "com", "pif", "bat", "cmd", "msc", "msi", "ico"};
  return std::any_of(refused.begin(), refused.end(),
                     [&](const char* each) { return EqualNoCase(each, type); });
}

Launcher LauncherOf(const Application& app) {
  Launcher launcher{app.bundleId, app.name, app.name + launcherSuffix, {}};
  for (const Icon& icon : app.icons) {
    if (icon.accepted) launcher.iconSizes.push_back(icon.size);
  }
  return launcher;
}

// Of a scheme's key: would it be an extension's, a ProgID's or the launchers' own?
bool IsClassOfAnotherKind(const std::string& scheme) {
  constexpr std::string_view claim = "_auto_file", url = "Tsrn.Url.";
  const bool claimed =
      scheme.size() >= claim.size() && EqualNoCase(scheme.substr(scheme.size() - claim.size()), claim);
  return scheme.starts_with(".") || claimed || EqualNoCase(scheme.substr(0, url.size()), url) ||
         EqualNoCase(scheme, "Applications");
}

}  // namespace

Mirror::Mirror(Snapshot start, Surroundings surroundings)
    : state_(std::move(start)), around_(std::move(surroundings)) {}

// A key comes with all its missing parents; what exists keeps its spelling.
void Mirror::SetData(const std::string& key, const std::string& value, const std::string& data) {
  const std::size_t above = std::string("HKCU\\Software").size();  // the part above what a snapshot holds
  std::string path = key.substr(0, above);
  for (std::size_t start = above + 1; start <= key.size();) {
    const std::size_t end = std::min(key.find('\\', start), key.size());
    path = state_.registry.try_emplace(path + "\\" + key.substr(start, end - start)).first->first;
    start = end + 1;
  }
  state_.registry[ValuePath(path, value)] = data;
}

void Mirror::SetText(const std::string& key, const std::string& value, const std::string& text) {
  SetData(key, value, RegistryText(text));
}

void Mirror::On(const Catalogue& catalogue) {
  for (const Application& app : catalogue.applications()) Register(app);
}

bool Mirror::Register(const Application& app) {
  const std::string exe = app.name + programSuffix, path = PathOfLauncher(exe);
  const std::string appKey = applicationsKey + "\\" + exe;
  if (!state_.launchers.contains(path)) {
    if (!CanBeBuilt(app)) return false;
    state_.files[path];
    state_.launchers[path] = LauncherOf(app);
    SetText(appKey, "", "");
    SetText(appKey + "\\shell\\open\\command", "", "\"" + path + "\" \"%1\"");
    state_.files.try_emplace(around_.shortcutFolder);
    state_.files[around_.shortcutFolder + "\\" + app.name + shortcutSuffix];
  }
  if (app.documentTypes.empty()) {
    SetText(appKey, "NoOpenWith", "");
  } else if (!RegisterTypes(app, appKey)) {
    return false;
  }
  return RegisterSchemes(app, appKey);
}

bool Mirror::RegisterTypes(const Application& app, const std::string& appKey) {
  const std::string exe = app.name + programSuffix;
  for (const std::string& type : app.documentTypes) {
    if (!IsBlackListed(type)) SetText(classesKey + "\\." + type + "\\OpenWithList\\" + exe, "", exe);
  }
  if (!Has(appKey)) return false;  // a launcher that was kept while its registration went
  state_.registry.erase(ValuePath(appKey, "NoOpenWith"));
  DeleteTree(state_.registry, appKey + "\\SupportedTypes");
  if (!app.anyType) {
    for (const std::string& type : app.documentTypes) SetText(appKey + "\\SupportedTypes", "." + type, "");
  }
  for (const std::string& type : app.defaultTypes) {
    if (!HasDefault("." + type)) ClaimDefault(type, exe);
  }
  return true;
}

bool Mirror::HasDefault(const std::string& extension) const {
  return around_.machineAssociates(extension) ||
         (around_.mergesUserClasses && !TextAt(state_.registry, classesKey + "\\" + extension, "").empty());
}

void Mirror::ClaimDefault(const std::string& type, const std::string& exe) {
  const std::string extensionKey = classesKey + "\\." + type, progId = type + "_auto_file";
  if (!IsBlackListed(type)) {
    if (around_.beforeWindows7) SetText(extensionKey, "", progId);
    SetText(classesKey + "\\" + progId, "", "");
    SetText(classesKey + "\\" + progId + "\\shell\\open\\command", "",
            "\"" + PathOfLauncher(exe) + "\" \"%1\"");
    const std::string offer = extensionKey + "\\OpenWithList\\" + exe;
    const auto text = state_.registry.find(ValuePath(offer, ""));
    const bool isText = text == state_.registry.end() || IsRegistryText(text->second);
    if (!Has(offer) || !isText) SetText(offer, "", exe);
  }
  if (!around_.beforeWindows7) SetData(extensionKey + "\\OpenWithProgids", progId, "REG_NONE, 0 bytes");
}

bool Mirror::RegisterSchemes(const Application& app, const std::string& appKey) {
  std::vector<std::string> schemes = app.urlSchemes;
  std::erase_if(schemes, IsClassOfAnotherKind);
  const std::string fullName = app.name + launcherSuffix, exe = fullName + ".exe",
                    progId = urlProgIdPrefix + fullName;
  DeleteTree(state_.registry, appKey + "\\SupportedProtocols");
  if (!Has(toolsKey)) return false;
  DeleteTree(state_.registry, macAppsKey + "\\" + fullName);
  if (schemes.empty()) {
    DeleteTree(state_.registry, classesKey + "\\" + progId);
    if (!Has(registeredKey)) return false;
    state_.registry.erase(ValuePath(registeredKey, fullName));
    return true;
  }
  const std::string capabilities = macAppsKey + "\\" + fullName + "\\Capabilities";
  for (const std::string& scheme : schemes) {
    SetText(appKey + "\\SupportedProtocols", scheme, "");
    SetText(classesKey + "\\" + progId + "\\shell\\open\\command", "",
            "\"" + PathOfLauncher(exe) + "\" /url \"%1\"");
    SetText(capabilities + "\\URLAssociations", scheme, progId);
    // A scheme belongs to the first who declares it: a declared one stays as it is.
    const std::string schemeKey = classesKey + "\\" + scheme;
    const auto declared = state_.registry.find(ValuePath(schemeKey, "URL Protocol"));
    const bool ours =
        around_.mergesUserClasses && declared != state_.registry.end() && IsRegistryText(declared->second);
    if (ours || around_.machineDeclares(scheme)) continue;
    SetText(schemeKey, "", "URL:" + scheme + launcherSuffix);
    SetText(schemeKey, "URL Protocol", "");
  }
  SetText(registeredKey, fullName, capabilities.substr(std::string("HKCU\\").size()));
  return true;
}

}  // namespace host
