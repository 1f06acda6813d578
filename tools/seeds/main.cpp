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

namespace {

using host::Bytes;

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

// The question as the guest asks it: its argument and its room.
Bytes Question(std::uint32_t code, const std::string& argument, std::uint32_t room) {
  Bytes envelope;
  const auto length = static_cast<std::uint32_t>(argument.size() + 1);
  for (const std::uint32_t field : {code, 3u, 0u, 0u, length + 28, 0u, 3u, length})
    host::PutU32(envelope, field);
  const auto text = std::as_bytes(std::span(argument.c_str(), length));
  envelope.insert(envelope.end(), text.begin(), text.end());
  for (const std::uint32_t field : {1u, 1u, 4u, room}) host::PutU32(envelope, field);
  return envelope;
}

void WriteReply(Seeds& seeds, const std::string& target, const host::Catalogue& catalogue,
                const Bytes& question) {
  const Bytes reply = host::AnswerCommand(catalogue, question).bytes;
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
  WriteReply(seeds, "list", alone, Question(102, "*", 32748));
  WriteReply(seeds, "icons", alone, Question(103, id, 277764));
  WriteReply(seeds, "details", alone, Question(104, id, 32748));
  WriteReply(seeds, "details", alone, Question(104, "unknown", 32748));
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
    WriteReply(seeds, "list", catalogue, Question(102, "*", 32748));
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
