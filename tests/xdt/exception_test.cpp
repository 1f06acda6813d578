// The exception of all work: what it records and how it reads. Line and file are given by hand here, as the
// raising macro takes them from the compiler.
#include <gtest/gtest.h>

#include <memory>

#include "xdt/exception/exc_tag.h"

TEST(CodePoint, KeepsTheLastComponentsOfTheFileName) {
  const struct {
    const char* name;
    std::int32_t depth;
    const char* kept;
  } cases[] = {{nullptr, 3, ""},
               {"", 3, ""},
               {"/a/b/c/d.cpp", 0, "/a/b/c/d.cpp"},
               {"/a/b/c/d.cpp", 1, "/d.cpp"},
               {"/a/b/c/d.cpp", 3, "/b/c/d.cpp"},
               {"/a/b/c/d.cpp", 4, "/a/b/c/d.cpp"},
               {"C:\\a/b\\c/d.cpp", 3, "/b\\c/d.cpp"},
               {"./d.cpp", 3, "./d.cpp"},
               {"d.cpp", 3, "d.cpp"},
               {"a//b/", 3, "//b/"}};
  for (const auto& c : cases) {
    EXPECT_EQ(xdt::code_point(c.name, 1, c.depth).file_name(), c.kept) << (c.name ? c.name : "null");
  }
}

TEST(ExcTag, ReadsAsPlaceAndMessage) {
  const struct {
    const char* file;
    std::int32_t line;
    const char* message;
    const char* text;
  } cases[] = {{"/x/src/a/f.cpp", 12, "failed", "/src/a/f.cpp:12: failed"},
               {nullptr, 12, "failed", ":12: failed"},
               {"f.cpp", 0, nullptr, "f.cpp:0: "},
               {"f.cpp", -5, nullptr, "f.cpp:0: "},
               {nullptr, 2147483647, "", ":2147483647: "},
               {"100%s.cpp", 1, "%s %n", "100%s.cpp:1: %s %n"}};
  for (const auto& c : cases) {
    const xdt::exc_tag raised(c.file, c.line, c.message, 3);
    EXPECT_STREQ(raised.what(), c.text);
    EXPECT_STREQ(raised.what(), c.text);
  }
  const std::string longMessage(100000, 'm');
  EXPECT_EQ(xdt::exc_tag("f", 1, longMessage.c_str(), 3).what(), "f:1: " + longMessage);
}

TEST(ExcTag, ACopyReadsTheSameFromTextOfItsOwn) {
  auto original = std::make_unique<xdt::exc_tag>("f", 1, "a message too long to be kept in place", 3);
  const std::string text = original->what();
  const xdt::exc_tag copy(*original);
  xdt::exc_tag assigned("g", 2, "other", 3);
  EXPECT_STREQ(assigned.what(), "g:2: other");
  assigned = *original;
  const xdt::exc_tag& itself = assigned;
  assigned = itself;
  original.reset();
  EXPECT_EQ(copy.what(), text);
  EXPECT_EQ(assigned.what(), text);
}

TEST(ExcTag, TheMacroRecordsThreeComponentsAndItsOwnLine) {
  EXPECT_THROW(XDT_RAISE("failed"), xdt::code_point);
  const std::int32_t line = __LINE__ + 2;
  try {
    XDT_RAISE("failed");
  } catch (const std::exception& failure) {
    const std::string text = failure.what();
    const std::string end = "xdt/exception_test.cpp:" + std::to_string(line) + ": failed";
    ASSERT_TRUE(text.ends_with(end)) << text;
    EXPECT_EQ(text.size(), std::string("/tests/").size() + end.size()) << text;
  }
}
