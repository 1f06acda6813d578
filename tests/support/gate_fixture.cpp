// The host of the tests, over the gate of this build.
#include "support/gate_fixture.h"

#include <map>
#include <memory>
#include <mutex>

#include "host/prepare.h"
#include "host/wire.h"

namespace {

// What the gate's threads answer from; shared with the answering function, which may outlive a test's body.
struct Script {
  std::mutex mutex;
  host::Catalogue catalogue;
  std::map<std::uint32_t, std::vector<std::byte>> fixed;
};

std::shared_ptr<Script> theScript;

host::Reply Answer(Script& script, std::span<const std::byte> envelope) {
  std::lock_guard lock(script.mutex);
  const std::uint32_t code = host::GetU32(envelope, 0);
  const auto fixed = script.fixed.find(code);
  if (fixed == script.fixed.end()) return host::AnswerCommand(script.catalogue, envelope);
  return {.bytes = host::Envelope(code, fixed->second)};
}

}  // namespace

void GateTest::SetUp() {
  GuestTest::SetUp();
  gate_ = host::CreateGate();
  theScript = std::make_shared<Script>();
  gate_->Serve(
      [script = theScript](std::span<const std::byte> envelope) { return Answer(*script, envelope); });
}

void GateTest::TearDown() {
  for (const std::string& breach : gate_->Facts().breaches)
    ADD_FAILURE() << "breach of the contract: " << breach;
  gate_.reset();
  GuestTest::TearDown();
}

void GateTest::Share(std::vector<host::Application> applications) {
  host::Catalogue catalogue;
  for (host::Application& application : applications) catalogue.Add(std::move(application));
  std::lock_guard lock(theScript->mutex);
  theScript->catalogue = std::move(catalogue);
}

void GateTest::ReplyWith(std::uint32_t code, std::vector<std::byte> data) {
  std::lock_guard lock(theScript->mutex);
  theScript->fixed[code] = std::move(data);
}

std::vector<std::byte> TestBitmap(int width, int height) {
  const auto w = static_cast<std::uint32_t>(width), h = static_cast<std::uint32_t>(height);
  host::Bytes bmp = host::BlankBitmap(w, h);
  bmp.resize(bmp.size() - std::size_t{4} * w * h);
  for (std::uint32_t pixel = 0; pixel < w * h; ++pixel) host::PutU32(bmp, pixel * 2654435761u);
  return bmp;
}

host::Application TestApplication(const std::string& name) {
  host::Application application;
  application.bundleId = "test." + name;
  application.name = name;
  application.icons.push_back({.file = "icon.png", .size = 16, .accepted = true, .bmp = TestBitmap(16, 16)});
  return application;
}

void InstallTools() {
  host::PrepareGuest();
}
