// Every name under which the module keeps something in the registry, for those who write it and those who
// find and remove it again. All keys lie in the current user's hive. These names are on people's machines:
// they never change. {name} is an application's display name, {app} its full name, {exe} its launcher's file
// name, {path} its launcher's full path, {ext} an extension without the dot, {scheme} a URL scheme without
// the colon.
#pragma once

#include "common/names.h"

inline const WideString classesKey = TEXT("Software\\Classes");
inline const WideString applicationsKey = TEXT("Software\\Classes\\Applications");
inline const WideString registeredApplicationsKey = TEXT("Software\\RegisteredApplications");
inline const WideString toolsKey = TEXT("SOFTWARE\\Tessarine\\Tessarine Tools");

inline const WideString commandSubkey = TEXT("\\shell\\open\\command");
inline const WideString urlProtocolValue = TEXT("URL Protocol");
inline const WideString noOpenWithValue = TEXT("NoOpenWith");
inline constexpr WideView autoFileSuffix = TEXT("_auto_file");

// {exe}
inline WideString LauncherExe(const WideString& app) {
  return WideString(app).append(launcherExtension);
}

// {appkey}: Software\Classes\Applications\{exe}
inline WideString ApplicationKey(const WideString& app) {
  return applicationsKey + TEXT("\\") + LauncherExe(app);
}

// {progid}: Tsrn.Url.{app}, the application's URL ProgID
inline WideString UrlProgId(const WideString& app) {
  return TEXT("Tsrn.Url.") + app;
}

// MacApps\{app}, below the tools' key
inline WideString MacAppsSubkey(const WideString& app) {
  return TEXT("MacApps\\") + app;
}

// {caps}: SOFTWARE\Tessarine\Tessarine Tools\MacApps\{app}\Capabilities
inline WideString CapabilitiesKey(const WideString& app) {
  return toolsKey + TEXT("\\") + MacAppsSubkey(app) + TEXT("\\Capabilities");
}

// {autoprogid}: {ext}_auto_file, the ProgID that makes a launcher the extension's default program
inline WideString AutoFileProgId(const WideString& extension) {
  return WideString(extension).append(autoFileSuffix);
}

// Software\Classes\.{ext}
inline WideString ExtensionKey(const WideString& extension) {
  return classesKey + TEXT("\\.") + extension;
}

// Software\Classes\{name of a class}
inline WideString ClassKey(const WideString& name) {
  return classesKey + TEXT("\\") + name;
}

// "{path}" "%1"
inline WideString OpenCommand(const WideString& launcherPath) {
  return TEXT("\"") + launcherPath + TEXT("\" \"%1\"");
}

// "{folder}\{exe}" /url "%1"
inline WideString UrlCommand(const WideString& launcherFolder, const WideString& app) {
  return TEXT("\"") + launcherFolder + TEXT("\\") + LauncherExe(app) + TEXT("\" /url \"%1\"");
}

// URL:{scheme} (Mac), the description by which the withdrawal knows a scheme's key
inline WideString SchemeDescription(const WideString& scheme) {
  return (TEXT("URL:") + scheme).append(launcherSuffix);
}
