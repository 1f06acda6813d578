// Names that several subsystems share: how a host application is called in the guest. Everything of one
// application is named after its display name and the launcher suffix; removal finds it again by that suffix,
// so these texts never change.
#pragma once

#include "common/text.h"

// With its leading blank.
inline constexpr WideView launcherSuffix = TEXT(" (Mac)");
inline constexpr WideView launcherExtension = TEXT(".exe");

// {name} (Mac)
inline WideString FullName(WideView name) {
  return WideString(name).append(launcherSuffix);
}

// {name} (Mac).exe
inline WideString LauncherFileName(WideView name) {
  return FullName(name).append(launcherExtension);
}

// `folder`, one separator unless it is empty or ends in one of the two, then `fileName`.
inline WideString JoinPath(WideView folder, WideView fileName) {
  WideString path(folder);
  if (!path.empty() && path.back() != TEXT('\\') && path.back() != TEXT('/')) path += TEXT('\\');
  return path.append(fileName);
}

// The text of a fixed buffer of `size` units, up to its first NUL or its end.
inline WideString TextOf(const WCHAR* buffer, std::size_t size) {
  const WideView all(buffer, size);
  return WideString(all.substr(0, all.find(WCHAR{0})));
}
