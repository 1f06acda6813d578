// What Wine is known to do otherwise than Windows, each difference stated once. A test fails when one of them
// closes: the one that goes by it, or the one beside this file.
#pragma once

enum class Gap {
  UserClasses,     // HKEY_CLASSES_ROOT does not show the current user's classes
  LinkProperties,  // a shell link's property store takes values, but does not give them back
  ProgIdQuery,     // the ProgID of an extension that has one is E_NOTIMPL
  ExpandedText,    // SHGetValueW expands a REG_EXPAND_SZ and reports it as REG_SZ
  LoadedUpdate,    // a resource update of a loaded program fails when it begins, not when it is committed
};

// False on every platform but Wine.
bool Lacks(Gap gap);
