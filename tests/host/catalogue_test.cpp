// The catalogue: what a PNG becomes on its way to the guest, and that a bad catalogue is refused with the
// reason.
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

// 1 pixel wide, 2 high: red and opaque above (1, 2, 3) half transparent.
constexpr unsigned char png[] = {0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A, 0x00, 0x00, 0x00, 0x0D, 0x49,
                                 0x48, 0x44, 0x52, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x02, 0x08, 0x06,
                                 0x00, 0x00, 0x00, 0x99, 0x81, 0xB6, 0x27, 0x00, 0x00, 0x00, 0x12, 0x49, 0x44,
                                 0x41, 0x54, 0x78, 0xDA, 0x63, 0xF8, 0xCF, 0xC0, 0xF0, 0x9F, 0x81, 0x91, 0x89,
                                 0xB9, 0x01, 0x00, 0x0F, 0x8B, 0x02, 0x85, 0x3D, 0x2C, 0xA4, 0x04, 0x00, 0x00,
                                 0x00, 0x00, 0x49, 0x45, 0x4E, 0x44, 0xAE, 0x42, 0x60, 0x82};

class CatalogueTest : public ::testing::Test {
 protected:
  CatalogueTest()
      : folder_(fs::temp_directory_path() / ("catalogue-" + std::to_string(std::random_device()()))) {
    fs::create_directories(folder_);
    std::ofstream(folder_ / "a.png", std::ios::binary).write(reinterpret_cast<const char*>(png), sizeof png);
    std::ofstream(folder_ / "text.png") << "this is no picture";
  }
  ~CatalogueTest() override { fs::remove_all(folder_); }

  host::Catalogue Load(const std::string& applications) const {
    std::ofstream(folder_ / "catalogue.json", std::ios::binary) << applications;
    return host::Catalogue::Load(folder_);
  }

  // The message with which loading fails; empty when it does not.
  std::string Refusal(const std::string& applications) const {
    try {
      Load(applications);
      return "";
    } catch (const std::runtime_error& failure) {
      return failure.what();
    }
  }

  fs::path folder_;
};

std::vector<int> BytesFrom(const host::Bytes& bytes, std::size_t start) {
  std::vector<int> numbers;
  for (std::size_t i = start; i < bytes.size(); ++i) numbers.push_back(std::to_integer<int>(bytes[i]));
  return numbers;
}

TEST_F(CatalogueTest, IconsBecomeBottomUpBitmapsInTheGuestsPixelOrder) {
  const host::Icon icon = host::ReadIcon(folder_, "a.png");
  const std::vector<int> header = {40, 0, 0, 0, 1,  0,  0, 0, 2,  0,  0, 0, 1, 0, 32, 0, 0, 0, 0, 0,
                                   8,  0, 0, 0, 19, 11, 0, 0, 19, 11, 0, 0, 0, 0, 0,  0, 0, 0, 0, 0};
  std::vector<int> expected = header;
  expected.insert(expected.end(), {3, 2, 1, 128, 0, 0, 255, 255});
  EXPECT_EQ(BytesFrom(icon.bmp, 14), expected);
  EXPECT_EQ(host::GetU16(icon.bmp, 0), 0x4D42);
  EXPECT_EQ(host::GetU32(icon.bmp, 2), icon.bmp.size());

  const host::Icon refused = host::RefusedIcon(icon);
  EXPECT_EQ(host::GetU16(refused.bmp, 28), 24);
  EXPECT_EQ(BytesFrom(refused.bmp, 54), (std::vector<int>{3, 2, 1, 0, 0, 0, 255, 0}));
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

TEST_F(CatalogueTest, ABadCatalogueIsRefusedWithFileAndReason) {
  const auto apps = [](const std::string& list) { return R"({"applications": [)" + list + "]}"; };
  const std::string good = R"({"bundleId": "b", "name": "A"})";
  const auto with = [&](const std::string& field) {
    return apps(R"({"bundleId": "b", "name": "A", )" + field + "}");
  };
  const struct {
    std::string json, reason, file = "catalogue.json";
  } cases[] = {{"{", "1:2: syntax error while parsing object key"},
               {R"({"apps": []})", "\"applications\" is missing"},
               {"[]", "type must be object, but is array"},
               {with(R"("urlSchemes": "s")"), "type must be array, but is string"},
               {apps(R"({"bundleId": "b"})"), "name is empty"},
               {with(R"("documentTypes": [""])"), "documentTypes is empty"},
               {with(R"("icons": ["no.png"])"), "cannot be opened", "no.png"},
               {with(R"("icons": [{"file": "a.png", "format": "gif"}])"), "unknown format"},
               {apps(good + R"(, {"bundleId": "b", "name": "B"})"), "bundleId of A"}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.json);
    const std::string message = Refusal(each.json);
    EXPECT_NE(message.find(each.file), std::string::npos) << message;
    EXPECT_NE(message.find(each.reason), std::string::npos) << message;
  }
  EXPECT_EQ(Refusal(apps(good)), "");
}

TEST_F(CatalogueTest, EveryFaultAndOddityHasItsPlace) {
  const std::string text = R"({
  "$schema": "catalogue.schema.json",
  "applications": [
    {
      "bundleId": 17, "name": "A:B", "anyType": "no",
      "documentTypes": ["ok", 1.5, ".txt", "a\\b"], "urlSchemes": ["web+x", "1st", "a b"],
      "icons": ["a.png", "text.png", "a.png", {"file": "."}, {"file": ".", "size": 1}]
    },
    {"name": "Café", "name": "Go", "defaultTypes": null},
    {"bundleId": "b", "name": "GO", "colour": {"name": "x"}}
  ]
})";
  std::ofstream(folder_ / "catalogue.json", std::ios::binary) << text;
  std::vector<host::Remark> remarks;
  host::Catalogue::Check(folder_, remarks);
  std::vector<std::string> found;
  for (const host::Remark& remark : remarks) {
    const std::string start = (folder_ / "catalogue.json").string() + ":";
    EXPECT_TRUE(remark.text.starts_with(start)) << remark.text;
    found.push_back((remark.isFault ? "" : "warning ") + remark.text.substr(start.size()));
  }
  const std::string picture = (folder_ / "text.png").string(), itself = (folder_ / ".").string();
  std::vector<std::string> expected = {
      "warning 9:23: the key \"name\" is there twice; the last counts",
      "5:19: type must be string, but is number",
      "5:49: type must be boolean, but is string",
      "6:31: type must be string, but is number",
      "7:26: " + picture + ": is no PNG image",
      "7:47: " + itself + ": is no plain file",
      "7:84: unknown field \"size\"",
      "7:62: " + itself + ": is no plain file",
      "9:53: type must be array, but is null",
      "10:47: unknown field \"colour\"",
      "5:31: name cannot name a file",
      "6:44: \"a\\b\" holds a backslash",
      "warning 6:36: the type \".txt\" holds a dot",
      "warning 6:77: no address has the scheme \"1st\"",
      "warning 6:84: no address has the scheme \"a b\"",
      "warning 7:17: the icon is not square: 1 by 2",
      "warning 7:38: the icon is not square: 1 by 2",
      "warning 7:38: there are two icons of 1 pixels",
      "9:5: bundleId is empty",
      "10:31: there are two of this name: GO",
  };
  std::ranges::sort(found);
  std::ranges::sort(expected);
  EXPECT_EQ(found, expected);
}

// Editors and this program agree on what a catalogue may hold.
TEST_F(CatalogueTest, TheSchemaKnowsTheFields) {
  const auto read = [](const fs::path& file) { return nlohmann::json::parse(std::ifstream(file)); };
  fs::path examples = "examples/catalogue";  // somewhere above the build tree
  for (int up = 0; up < 8 && !exists(examples); ++up) examples = ".." / examples;
  const nlohmann::json schema = read(examples / "catalogue.schema.json"),
                       fields = schema["definitions"]["application"]["properties"];
  nlohmann::json application;
  for (const auto& [name, field] : fields.items()) {
    const nlohmann::json& values = field.contains("$ref") ? schema["definitions"]["types"] : field;
    application[name] = values["examples"][0];
  }
  EXPECT_EQ(Refusal(nlohmann::json{{"applications", {application}}}.dump()), "");
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
