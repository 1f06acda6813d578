// The steps of registration, in the order that the entries depend on each other. Types and schemes are the
// host's own texts; one that is empty or holds a backslash would address another key and is passed over, and
// so is a scheme whose key would be an extension's, a ProgID's or the launchers' own.
#include "registry/registry_registration.h"

#include <vector>

#include "channel/mainfo.h"
#include "common/windows_version.h"
#include "launcher/mainfo.h"
#include "registry/registry_association.h"
#include "registry/registry_names.h"
#include "xdt/exception/exc_tag.h"

namespace {

bool IsUnusable(const WideString& name) {
  return name.empty() || name.find(TEXT('\\')) != WideString::npos;
}

// Names of keys are the same in either letter case.
bool IsClassOfAnotherKind(const WideString& scheme) {
  const WideString name = AsciiLower(scheme);
  return name.starts_with(TEXT('.')) || name.ends_with(autoFileSuffix) ||
         name.starts_with(TEXT("tsrn.url.")) || name == TEXT("applications");
}

MacAppDetails DetailsOf(const MacAppInfo& app) {
  MacAppDetails details;
  GetMacAppDetails(app, details);
  std::erase_if(details.documentTypes, IsUnusable);
  std::erase_if(details.defaultTypes, IsUnusable);
  std::erase_if(details.urlSchemes, IsUnusable);
  std::erase_if(details.urlSchemes, IsClassOfAnotherKind);
  return details;
}

// Offers and claims for the document types. True when an extension was newly claimed.
bool RegisterTypes(const WideString& launcherFolder, const WideString& app, const MacAppDetails& details) {
  const WideString appKey = ApplicationKey(app);
  for (const WideString& extension : details.documentTypes) {
    RegisterOpenWith(app, extension, launcherFolder, false);
  }
  DeleteValue(HKEY_CURRENT_USER, appKey, noOpenWithValue);
  DeleteSubkey(HKEY_CURRENT_USER, appKey, TEXT("SupportedTypes"));
  if (!details.anyType) {
    for (const WideString& extension : details.documentTypes) {
      // {appkey}\SupportedTypes
      SetStringValue(HKEY_CURRENT_USER, appKey + TEXT("\\SupportedTypes"), TEXT(".") + extension, {});
    }
  }
  bool claimed = false;
  for (const WideString& extension : details.defaultTypes) {
    if (!IsUnassociated(extension)) continue;
    claimed |= RegisterOpenWith(app, extension, launcherFolder, true);
    if (IsWindows7OrLater()) AddOpenWithProgId(extension);
  }
  return claimed;
}

// One scheme: routed to the application's URL ProgID, and declared when nobody has declared it.
void RegisterScheme(const WideString& launcherFolder, const WideString& app, const WideString& scheme) {
  const WideString progId = UrlProgId(app);
  // {appkey}\SupportedProtocols
  SetStringValue(HKEY_CURRENT_USER, ApplicationKey(app) + TEXT("\\SupportedProtocols"), scheme, {});
  // Software\Classes\{progid}\shell\open\command
  SetStringValue(HKEY_CURRENT_USER, ClassKey(progId) + commandSubkey, defaultValue,
                 UrlCommand(launcherFolder, app));
  // {caps}\URLAssociations
  SetStringValue(HKEY_CURRENT_USER, CapabilitiesKey(app) + TEXT("\\URLAssociations"), scheme, progId);
  if (HasStringValue(HKEY_CLASSES_ROOT, scheme, urlProtocolValue)) return;
  // Software\Classes\{scheme}
  SetStringValue(HKEY_CURRENT_USER, ClassKey(scheme), defaultValue, SchemeDescription(scheme));
  SetStringValue(HKEY_CURRENT_USER, ClassKey(scheme), urlProtocolValue, {});
}

// The application's URL entries, cleared and written anew, so that a scheme it dropped leaves none behind.
void RegisterSchemes(const WideString& launcherFolder, const WideString& app, const MacAppDetails& details) {
  DeleteSubkey(HKEY_CURRENT_USER, ApplicationKey(app), TEXT("SupportedProtocols"));
  DeleteTree(HKEY_CURRENT_USER, toolsKey, MacAppsSubkey(app));
  if (details.urlSchemes.empty()) {
    DeleteTree(HKEY_CURRENT_USER, classesKey, UrlProgId(app));
    DeleteValue(HKEY_CURRENT_USER, registeredApplicationsKey, app);
    return;
  }
  for (const WideString& scheme : details.urlSchemes) RegisterScheme(launcherFolder, app, scheme);
  // Software\RegisteredApplications
  SetStringValue(HKEY_CURRENT_USER, registeredApplicationsKey, app, CapabilitiesKey(app));
}

}  // namespace

bool RegisterHostApplication(const WideString& launcherFolder, const MacAppInfo& info, bool skipIfCurrent) {
  const bool launcherChanged = CreateLauncher(launcherFolder, info, skipIfCurrent);
  const MacAppDetails details = DetailsOf(info);
  const WideString app = FullName(info.name);
  bool claimed = false;
  if (details.documentTypes.empty()) {
    SetStringValue(HKEY_CURRENT_USER, ApplicationKey(app), noOpenWithValue, {});
  } else {
    claimed = RegisterTypes(launcherFolder, app, details);
  }
  RegisterSchemes(launcherFolder, app, details);
  return launcherChanged || claimed;
}

void RegisterApplication(const WideString& app, const WideString& launcherPath) {
  const WideString command = OpenCommand(launcherPath);
  const Key hive = OpenCurrentUser();
  // {appkey} and {appkey}\shell\open\command
  if (!RegisterClassKey(hive.get(), applicationsKey + TEXT("\\"), LauncherExe(app), &command)) {
    XDT_RAISE("can't register application");
  }
}

bool RegisterClassKey(HKEY hive, const WideString& base, const WideString& name, const WideString* command) {
  try {
    const WideString key = base + name;
    SetStringValue(hive, key, defaultValue, {});
    if (command != nullptr) SetStringValue(hive, key + commandSubkey, defaultValue, *command);
    return true;
  } catch (const std::exception&) {
    return false;  // the caller says what was not registered
  }
}
