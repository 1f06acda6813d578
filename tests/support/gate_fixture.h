// A guest with a simulated host behind its tool gate. The host answers from what a test shares and notes
// every question; every breach of the gate's contract by the guest fails the test.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>

#include "host/catalogue.h"
#include "host/driver/gate.h"
#include "host/prepare.h"
#include "host/replies.h"
#include "host/wire.h"
#include "support/guest.h"

class GateTest : public GuestTest {
 protected:
  using Codes = std::vector<std::uint32_t>;
  using Watcher = std::function<void(std::span<const std::byte> envelope)>;
  // How long to wait for the guest; not at all in a test that has failed.
  static std::chrono::seconds patience() { return std::chrono::seconds(HasFailure() ? 0 : 30); }

  void SetUp() override;
  void TearDown() override;

  host::Gate& gate() { return *gate_; }
  // The handles that guests have open at the device: a module has two once it has announced itself.
  std::uint64_t OpenHandles() { return gate_->Facts().opens - gate_->Facts().closes; }

  // Answers the guest's requests from these applications from now on, and returns the catalogue of them.
  host::Catalogue Share(const std::vector<host::Application>& applications);
  // Answers requests of `code` with these data, whatever the guest asks; other requests as before.
  void ReplyWith(std::uint32_t code, host::Bytes data);

  // `watcher` is called for each question before it is noted and answered.
  void Watch(Watcher watcher);
  // The codes of all questions since the last call.
  Codes TakeAsked();
  // Waits until `code` has been asked since the questions were last taken.
  void Await(std::uint32_t code);

 private:
  host::Reply Answer(std::span<const std::byte> envelope);

  std::unique_ptr<host::Gate> gate_;
  std::mutex mutex_;  // guards what follows: the gate's threads answer from it
  std::condition_variable changed_;
  host::Catalogue catalogue_;
  std::map<std::uint32_t, host::Bytes> fixed_;
  Watcher watcher_;
  Codes asked_;
};

using host::Items;

// A whole bottom-up 32-bit BMP image whose pixels depend on their place.
host::Bytes TestBitmap(std::uint32_t width, std::uint32_t height);

// An application with one small icon.
using Texts = std::vector<std::string>;
host::Application TestApplication(const std::string& name, const Texts& types = {},
                                  const Texts& defaults = {}, const Texts& schemes = {});
