// Modules as data and resource updates, on images of every layout, as every build must have them.
// The images are not real programs of this system: they hold just what an update has to keep.
#include <gtest/gtest.h>

#include "pe_file.h"
#include "support/guest.h"

namespace {

class ResourcesTest : public GuestTest {
 protected:
  void SetUp() override {
    GuestTest::SetUp();
    path = Scratch() + TEXT("\\Chess (Mac).exe");
  }

  WideString path;
};

struct Variant {
  const char* name;
  stub::Layout layout;
};

const Variant variants[] = {
    {"64 bit", {}},
    {"32 bit", {.wide = false}},
    {"without resources", {.resources = false}},
    {"followed by another section", {.relocations = true}},
    {"32 bit, without resources, with another section",
     {.wide = false, .resources = false, .relocations = true}},
};

pe::Bytes Pattern(std::size_t size) {
  pe::Bytes bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 31 + i / 256);
  return bytes;
}

TEST_F(ResourcesTest, CommitAddsResourcesAndKeepsTheRest) {
  for (const auto& [name, layout] : variants) {
    SCOPED_TRACE(name);
    const pe::Bytes before = pe::Stub(layout);
    ASSERT_TRUE(pe::Write(path, before));
    auto expected = pe::List(path).value();
    ASSERT_EQ(expected.size(), layout.resources ? 1u : 0u);

    // Small, then far larger than a page, then small again.
    for (const std::size_t iconSize : {std::size_t{40}, std::size_t{70'001}, std::size_t{1}}) {
      const HANDLE update = BeginUpdateResourceW(path.c_str(), FALSE);
      ASSERT_NE(update, nullptr);
      EXPECT_TRUE(pe::Put(update, RT_RCDATA, MAKEINTRESOURCE(260), 0, "id"));
      EXPECT_TRUE(pe::Put(update, RT_RCDATA, MAKEINTRESOURCE(57005), 0, "mice was here"));
      EXPECT_TRUE(pe::Put(update, RT_VERSION, MAKEINTRESOURCE(1), 0x400, Pattern(700)));
      EXPECT_TRUE(pe::Put(update, RT_ICON, MAKEINTRESOURCE(449), 0x400, Pattern(iconSize)));
      EXPECT_TRUE(pe::Put(update, RT_GROUP_ICON, MAKEINTRESOURCE(448), 0x400, "group"));
      ASSERT_TRUE(EndUpdateResourceW(update, FALSE));
      expected["10/260/0"] = "id";
      expected["10/57005/0"] = "mice was here";
      expected["16/1/1024"] = Pattern(700);
      expected["3/449/1024"] = Pattern(iconSize);
      expected["14/448/1024"] = "group";
      EXPECT_EQ(pe::List(path), expected) << iconSize;

      const pe::Bytes after = pe::Read(path);
      const auto sections = pe::Sections(after);
      for (const auto& [section, content] : pe::Sections(before)) {
        if (section == ".rsrc") continue;
        EXPECT_EQ(sections.at(section).bytes, content.bytes) << section;
      }
      // The loader wants sections in the order of their addresses, each right behind the one before.
      DWORD end = 0x1000;
      for (std::size_t i = 0; i < pe::SectionCount(after); ++i) {
        const std::size_t header = pe::SectionTable(after) + i * 40;
        EXPECT_EQ(pe::At<DWORD>(after, header + 12), end) << i;
        end += (pe::At<DWORD>(after, header + 8) + 0xFFF) / 0x1000 * 0x1000;
      }
      EXPECT_EQ(pe::At<DWORD>(after, pe::OptionalHeader(after) + 56), end);
    }
  }
}

TEST_F(ResourcesTest, OnlyTheSameTypeNameAndLanguageIsReplaced) {
  ASSERT_TRUE(pe::Write(path, pe::Stub()));
  const HANDLE update = BeginUpdateResourceW(path.c_str(), FALSE);
  EXPECT_TRUE(pe::Put(update, RT_RCDATA, MAKEINTRESOURCE(1), 0x409, "language"));
  EXPECT_TRUE(pe::Put(update, RT_RCDATA, MAKEINTRESOURCE(2), 0, "name"));
  EXPECT_TRUE(pe::Put(update, RT_ICON, MAKEINTRESOURCE(1), 0, "type"));
  EXPECT_TRUE(EndUpdateResourceW(update, FALSE));
  pe::Resources expected{
      {"10/1/0", "template"}, {"10/1/1033", "language"}, {"10/2/0", "name"}, {"3/1/0", "type"}};
  EXPECT_EQ(pe::List(path), expected);

  const HANDLE second = BeginUpdateResourceW(path.c_str(), FALSE);
  EXPECT_TRUE(pe::Put(second, RT_RCDATA, MAKEINTRESOURCE(1), 0, "first"));
  EXPECT_TRUE(pe::Put(second, RT_RCDATA, MAKEINTRESOURCE(1), 0, "replaced"));
  EXPECT_TRUE(EndUpdateResourceW(second, FALSE));
  expected["10/1/0"] = "replaced";
  EXPECT_EQ(pe::List(path), expected);

  const HANDLE third = BeginUpdateResourceW(path.c_str(), TRUE);
  EXPECT_TRUE(pe::Put(third, RT_RCDATA, MAKEINTRESOURCE(5), 0, "alone"));
  EXPECT_TRUE(EndUpdateResourceW(third, FALSE));
  EXPECT_EQ(pe::List(path), (pe::Resources{{"10/5/0", "alone"}}));
}

TEST_F(ResourcesTest, NothingChangesBeforeTheCommitOrByADiscard) {
  const pe::Bytes before = pe::Stub();
  ASSERT_TRUE(pe::Write(path, before));
  for (const BOOL discard : {TRUE, FALSE}) {
    const HANDLE update = BeginUpdateResourceW(path.c_str(), FALSE);
    EXPECT_TRUE(pe::Put(update, RT_RCDATA, MAKEINTRESOURCE(260), 0, "id"));
    EXPECT_EQ(pe::Read(path), before);
    EXPECT_TRUE(EndUpdateResourceW(update, discard));
    EXPECT_EQ(pe::Read(path) == before, discard == TRUE);
    EXPECT_FALSE(EndUpdateResourceW(update, discard)) << "the handle is gone";
  }
}

TEST_F(ResourcesTest, ALoadedFileTakesNoCommitUntilItIsFreed) {
  const pe::Bytes before = pe::Stub();
  for (const bool asData : {false, true}) {
    ASSERT_TRUE(pe::Write(path, before));
    const HMODULE module = LoadLibraryExW(path.c_str(), nullptr, asData ? LOAD_LIBRARY_AS_DATAFILE : 0);
    ASSERT_NE(module, nullptr);
    // Whether the update can begin is left open.
    const HANDLE update = BeginUpdateResourceW(path.c_str(), FALSE);
    if (update) {
      EXPECT_TRUE(pe::Put(update, RT_RCDATA, MAKEINTRESOURCE(260), 0, "id"));
      EXPECT_FALSE(EndUpdateResourceW(update, FALSE));
    }
    EXPECT_EQ(pe::Read(path), before);
    EXPECT_EQ(pe::Find(module, RT_RCDATA, MAKEINTRESOURCE(1), 0), "template");
    if (!asData) {
      EXPECT_FALSE(DeleteFileW(path.c_str()));
    }
    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_FALSE(FreeLibrary(module));

    const HANDLE again = BeginUpdateResourceW(path.c_str(), FALSE);
    EXPECT_TRUE(pe::Put(again, RT_RCDATA, MAKEINTRESOURCE(260), 0, "id"));
    EXPECT_TRUE(EndUpdateResourceW(again, FALSE));
  }
}

}  // namespace
