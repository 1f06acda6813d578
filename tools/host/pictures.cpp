// PNG encoding, and the catalogue that is written with it.
#include "host/pictures.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "guest/text.h"

#define STBI_WRITE_NO_STDIO
#define STB_IMAGE_WRITE_IMPLEMENTATION
#include <stb/stb_image_write.h>

namespace host {
namespace {

// `bottomUp` holds rows of blue, green, red and, with 32 bits, alpha, each padded to a multiple of 4 bytes.
std::string Encode(std::span<const std::byte> bottomUp, std::uint32_t width, std::uint32_t height,
                   std::uint32_t bits) {
  const std::size_t channels = bits / 8, pitch = (width * channels + 3) / 4 * 4;
  std::string rows;
  for (std::size_t row = height; row-- > 0;) {
    for (std::size_t x = 0; x < width; ++x) {
      const auto pixel = bottomUp.subspan(row * pitch + x * channels, channels);
      for (const std::size_t channel : {2u, 1u, 0u}) rows += std::to_integer<char>(pixel[channel]);
      if (channels == 4) rows += std::to_integer<char>(pixel[3]);
    }
  }
  std::string png;
  const auto append = [](void* to, void* data, int size) {
    static_cast<std::string*>(to)->append(static_cast<const char*>(data), static_cast<std::size_t>(size));
  };
  if (!stbi_write_png_to_func(append, &png, static_cast<int>(width), static_cast<int>(height),
                              static_cast<int>(channels), rows.data(), static_cast<int>(width * channels))) {
    throw std::runtime_error("a picture cannot be encoded");
  }
  return png;
}

}  // namespace

std::string PngOf(const Icon& icon) {
  const std::span<const std::byte> bmp = icon.bmp;
  return Encode(bmp.subspan(54), GetU32(bmp, 18), GetU32(bmp, 22), GetU16(bmp, 28));
}

std::string PngOf(const LauncherIcon& icon) {
  constexpr std::size_t header = 40;
  const std::span<const std::byte> image = icon.image;
  const std::uint32_t width = image.size() < header ? 0 : GetU32(image, 4),
                      height = image.size() < header ? 0 : GetU32(image, 8) / 2;
  if (width == 0 || height == 0 || width > 256 || height > 256 ||
      image.size() < header + std::size_t{4} * width * height) {
    throw std::runtime_error("a launcher's icon is no picture of at most 256 by 256 pixels");
  }
  return Encode(image.subspan(header), width, height, 32);
}

void WriteFileWhole(const std::filesystem::path& file, std::string_view bytes) {
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  if (!out.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush()) {
    throw std::runtime_error(PathText(file) + ": cannot be written");
  }
}

nlohmann::ordered_json FieldsOf(const Application& app) {
  return {{"bundleId", app.bundleId},         {"name", app.name},       {"documentTypes", app.documentTypes},
          {"defaultTypes", app.defaultTypes}, {"anyType", app.anyType}, {"urlSchemes", app.urlSchemes}};
}

void SaveCatalogue(const Catalogue& catalogue, const std::filesystem::path& folder) {
  remove_all(folder);
  create_directories(folder);
  std::map<Bytes, std::string> files;  // of a picture that several icons share there is one
  nlohmann::ordered_json applications = nlohmann::ordered_json::array();
  for (const Application& app : catalogue.applications()) {
    nlohmann::ordered_json icons = nlohmann::ordered_json::array();
    for (const Icon& icon : app.icons) {
      const auto [entry, isNew] = files.try_emplace(icon.bmp, std::to_string(files.size() + 1) + ".png");
      if (isNew) WriteFileWhole(folder / entry->second, PngOf(icon));
      if (icon.accepted) {
        icons.push_back(entry->second);
      } else {
        icons.push_back({{"file", entry->second}, {"format", "bmp24"}});
      }
    }
    applications.push_back(FieldsOf(app));
    applications.back()["icons"] = icons;
  }
  WriteFileWhole(folder / "catalogue.json",
                 nlohmann::ordered_json{{"applications", applications}}.dump(2) + "\n");
}

}  // namespace host
