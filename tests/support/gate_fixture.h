// A guest with a simulated host behind its tool gate. The host answers from what a test shares; every breach
// of the gate's contract by the guest fails the test.
#pragma once

#include "host/catalogue.h"
#include "host/gate.h"
#include "host/replies.h"
#include "support/guest.h"

class GateTest : public GuestTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  host::Gate& gate() { return *gate_; }

  // Answers the guest's requests from these applications from now on.
  void Share(std::vector<host::Application> applications);

  // Answers requests of `code` with these data, whatever the guest asks; other requests as before.
  void ReplyWith(std::uint32_t code, std::vector<std::byte> data);

 private:
  std::unique_ptr<host::Gate> gate_;
};

using host::Items;

// A whole bottom-up 32-bit BMP image whose pixels depend on their place.
std::vector<std::byte> TestBitmap(int width, int height);

// An application with one small icon; types and schemes are the caller's to add.
host::Application TestApplication(const std::string& name);

// Installs the template stub and the tools' installation key, and creates the keys that registration expects
// to find in the user's hive.
void InstallTools();
