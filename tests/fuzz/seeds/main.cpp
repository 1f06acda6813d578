// velomira-seeds <catalogue> <folder>: writes inputs for the fuzz targets, a folder for each target, from the
// replies that the simulated host gives for a catalogue. The targets' sources say how an input is built.
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "host/catalogue.h"
#include "host/replies.h"
#include "host/text.h"
#include "stub/stub.h"
#include "trials/expectations.h"

namespace {

using host::Bytes;
using trials::Kind;

constexpr std::size_t headerSize = 20;

class Seeds {
 public:
  explicit Seeds(std::filesystem::path folder) : folder_(std::move(folder)) {}

  void Write(const std::string& target, const Bytes& prefix, std::span<const std::byte> rest) {
    std::filesystem::create_directories(folder_ / target);
    std::ofstream out(folder_ / target / std::to_string(++count_), std::ios::binary);
    for (const auto part : {std::span<const std::byte>(prefix), rest}) {
      out.write(reinterpret_cast<const char*>(part.data()), static_cast<std::streamsize>(part.size()));
    }
    if (!out.flush()) throw std::runtime_error("a seed cannot be written");
  }

 private:
  std::filesystem::path folder_;
  int count_ = 0;
};

void WriteReply(Seeds& seeds, const std::string& target, Kind kind, const host::Catalogue& catalogue,
                const std::string& argument) {
  const Bytes reply = trials::RealReply(kind, catalogue, argument);
  seeds.Write(target, {std::byte{0}}, reply);
  seeds.Write("bit_box", {}, std::span(reply).subspan(headerSize));
}

void WriteApplication(Seeds& seeds, host::Application app) {
  // Large pictures make slow inputs and find nothing else.
  std::erase_if(app.icons, [](const host::Icon& icon) { return icon.size > 32; });
  for (const host::Icon& icon : app.icons) {
    for (const std::byte mask : {std::byte{0}, std::byte{1}}) seeds.Write("bitmap", {mask}, icon.bmp);
    seeds.Write("bitmap", {std::byte{0}}, host::RefusedIcon(icon).bmp);
  }
  const std::string id = app.bundleId;
  host::Catalogue alone;
  alone.Add(std::move(app));
  WriteReply(seeds, "list", Kind::List, alone, "*");
  WriteReply(seeds, "icons", Kind::Icons, alone, id);
  WriteReply(seeds, "details", Kind::Details, alone, id);
  WriteReply(seeds, "details", Kind::Details, alone, "unknown");
}

void WriteCommands(Seeds& seeds) {
  Bytes all;
  const auto step = [&](const Bytes& envelope) {
    all.push_back(std::byte{1});
    host::PutU16(all, static_cast<std::uint32_t>(envelope.size()));
    all.insert(all.end(), envelope.begin(), envelope.end());
    seeds.Write("commands", {}, all);
  };
  for (const Bytes& envelope :
       {host::SharingCommand(true), host::AnnounceCommand(), host::SharingCommand(false)}) {
    step(envelope);
  }
  for (const std::uint32_t error : {0u, 1u, 2u, 3u}) {
    Bytes failing{std::byte{0}, static_cast<std::byte>(error)};
    host::PutU32(failing, error);
    seeds.Write("commands", failing, all);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: velomira-seeds <catalogue> <folder>\n";
    return 2;
  }
  try {
    Seeds seeds(host::PathOf(argv[2]));
    const auto catalogue = host::Catalogue::Load(host::PathOf(argv[1]));
    WriteReply(seeds, "list", Kind::List, catalogue, "*");
    for (const host::Application& app : catalogue.applications()) WriteApplication(seeds, app);
    WriteCommands(seeds);
    for (std::size_t layout = 0; layout < 8; ++layout) {
      const Bytes image = stub::MakeTemplateStub({(layout & 1) != 0, (layout & 2) != 0, (layout & 4) != 0});
      seeds.Write("images", {static_cast<std::byte>(layout), std::byte{2}}, image);
    }
    return 0;
  } catch (const std::exception& failure) {
    std::cerr << "velomira-seeds: " << failure.what() << "\n";
    return 1;
  }
}
