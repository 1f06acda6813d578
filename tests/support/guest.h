// A clean guest for each test: natively a guest root and a registry of its own; under Wine the user's keys
// and folders that the module touches, emptied. The native fixture also ends every test with no handle open.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include "common/text.h"

class GuestTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // A folder on drive C that exists and is empty, for the test's own files; no trailing separator.
  static WideString Scratch();
};
