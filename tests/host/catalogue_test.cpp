// The catalogue: what a PNG becomes on its way to the guest, what is read, and what is refused. What is said
// of faulty catalogues is shown by the tool's own test.
#include "host/catalogue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <stdexcept>

namespace {

namespace fs = std::filesystem;

// The source tree, which is somewhere above the build's.
fs::path Source() {
  fs::path source = ".";
  for (int up = 0; up < 8 && !exists(source / "examples/catalogue"); ++up) source = ".." / source;
  return source;
}

class CatalogueTest : public ::testing::Test {
 protected:
  CatalogueTest()
      : folder_(fs::temp_directory_path() / ("catalogue-" + std::to_string(std::random_device()()))) {
    fs::create_directories(folder_);
    fs::copy_file(Source() / "tests/host/faulty/a.png", folder_ / "a.png");
  }
  ~CatalogueTest() override { fs::remove_all(folder_); }

  host::Catalogue Load(const std::string& applications) const {
    std::ofstream(folder_ / "catalogue.json", std::ios::binary) << applications;
    return host::Catalogue::Load(folder_);
  }

  fs::path folder_;
};

// The picture is 1 pixel wide and 2 high: red and opaque above (1, 2, 3) half transparent.
TEST_F(CatalogueTest, IconsBecomeBottomUpBitmapsInTheGuestsPixelOrder) {
  const host::Icon icon = host::ReadIcon(folder_, "a.png");
  const auto bitmap = [](std::uint32_t bits, std::initializer_list<unsigned char> pixels) {
    host::Bytes bytes = host::BlankBitmap(1, 2, bits);
    std::ranges::transform(pixels, bytes.begin() + 54, [](unsigned char value) { return std::byte{value}; });
    return bytes;
  };
  EXPECT_EQ(icon.bmp, bitmap(32, {3, 2, 1, 128, 0, 0, 255, 255}));
  const host::Icon refused = host::RefusedIcon(icon);
  EXPECT_EQ(refused.bmp, bitmap(24, {3, 2, 1, 0, 0, 0, 255, 0}));
  EXPECT_FALSE(refused.accepted);
}

TEST_F(CatalogueTest, AWholeEntryIsRead) {
  const host::Catalogue catalogue = Load(R"({"applications": [{"bundleId": "x.y", "name": "Café",
      "documentTypes": ["a", "b"], "defaultTypes": ["b"], "anyType": true, "urlSchemes": ["s"],
      "icons": ["a.png", {"file": "a.png", "format": "bmp24"}]}]})");
  const host::Application& app = catalogue.applications().at(0);
  using Texts = std::vector<std::string>;
  EXPECT_EQ((std::vector{Texts{app.bundleId, app.name}, app.documentTypes, app.defaultTypes, app.urlSchemes}),
            (std::vector{Texts{"x.y", "Caf\xC3\xA9"}, Texts{"a", "b"}, Texts{"b"}, Texts{"s"}}));
  EXPECT_TRUE(app.anyType);
  EXPECT_TRUE(app.icons.at(0).accepted);
  EXPECT_FALSE(app.icons.at(1).accepted);
}

// Editors and this program agree on what a catalogue may hold.
TEST_F(CatalogueTest, TheSchemaKnowsTheFields) {
  const auto read = [](const fs::path& file) { return nlohmann::json::parse(std::ifstream(file)); };
  const fs::path examples = Source() / "examples/catalogue";
  const nlohmann::json schema = read(examples / "catalogue.schema.json"),
                       fields = schema["definitions"]["application"]["properties"];
  nlohmann::json application;
  for (const auto& [name, field] : fields.items()) {
    const nlohmann::json& values = field.contains("$ref") ? schema["definitions"]["types"] : field;
    application[name] = values["examples"][0];
  }
  EXPECT_NO_THROW(Load(nlohmann::json{{"applications", {application}}}.dump()));
  const nlohmann::json example = read(examples / "catalogue.json");
  for (const nlohmann::json& each : example["applications"]) {
    for (const auto& [name, value] : each.items()) EXPECT_TRUE(fields.contains(name)) << name;
  }
}

TEST_F(CatalogueTest, IconsThatOneReplyCannotHoldAreRefused) {
  host::Application app;
  app.bundleId = app.name = "A";
  app.icons.resize(2);
  app.icons[0].bmp.resize(277764 - 2 * 12 - 100);
  app.icons[1].bmp.resize(101);
  host::Catalogue catalogue;
  EXPECT_THROW(catalogue.Add(app), std::runtime_error);
  app.icons[1].bmp.resize(100);
  EXPECT_NO_THROW(catalogue.Add(app));
}

TEST_F(CatalogueTest, ARefusedEditChangesNothing) {
  host::Catalogue catalogue =
      Load(R"({"applications": [{"bundleId": "b", "name": "A"}, {"bundleId": "c", "name": "B"}]})");
  EXPECT_THROW(catalogue.Rename("A", "b"), std::runtime_error);
  EXPECT_THROW(catalogue.Rename("C", "D"), std::runtime_error);
  EXPECT_THROW(catalogue.Remove("C"), std::runtime_error);
  ASSERT_EQ(catalogue.applications().size(), 2u);
  EXPECT_EQ(catalogue.applications()[0].name, "A");
  catalogue.Rename("A", "a");  // another spelling of its own name
  EXPECT_EQ(catalogue.applications()[0].name, "a");
}

}  // namespace
