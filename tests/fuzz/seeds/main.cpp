// velomira-seeds <catalogue> <folder>: writes inputs for the fuzz targets, a folder for each target, from the
// replies that the simulated host gives for a catalogue. The targets' sources say how an input is built.
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "guest/text.h"
#include "host/replies.h"
#include "trials/replies.h"

namespace {

using host::Bytes;
using trials::Kind;

class Seeds {
 public:
  explicit Seeds(std::filesystem::path folder) : folder_(std::move(folder)) {}

  void Write(const std::string& target, Bytes input, std::span<const std::byte> rest) {
    input.insert(input.end(), rest.begin(), rest.end());
    std::filesystem::create_directories(folder_ / target);
    std::ofstream file(folder_ / target / std::to_string(++count_), std::ios::binary);
    if (!(file << trials::TextOf(input) << std::flush)) throw std::runtime_error("a seed cannot be written");
  }

  void WriteApplication(host::Application app) {
    // Large pictures make slow inputs and find nothing else.
    std::erase_if(app.icons, [](const host::Icon& icon) { return icon.size > 32; });
    for (const host::Icon& icon : app.icons) {
      for (const std::byte mask : {std::byte{0}, std::byte{1}}) Write("bitmap", {mask}, icon.bmp);
      Write("bitmap", {std::byte{0}}, host::RefusedIcon(icon).bmp);
    }
    host::Catalogue alone;
    alone.Add(app);
    for (const auto& [target, kind] :
         {std::pair{"list", Kind::List}, {"icons", Kind::Icons}, {"details", Kind::Details}})
      Write(target, {std::byte{0}}, trials::RealReply(kind, alone, kind == Kind::List ? "*" : app.bundleId));
  }

 private:
  std::filesystem::path folder_;
  int count_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc != 3) throw std::runtime_error("usage: velomira-seeds <catalogue> <folder>");
    Seeds seeds(host::PathOf(argv[2]));
    const auto catalogue = host::Catalogue::Load(host::PathOf(argv[1]));
    for (const host::Application& app : catalogue.applications()) seeds.WriteApplication(app);
    return 0;
  } catch (const std::exception& failure) {
    std::cerr << "velomira-seeds: " << failure.what() << "\n";
    return 1;
  }
}
