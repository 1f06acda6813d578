// What is typed at the prompt goes on as it was meant.
#include "host/shell.h"

#include <gtest/gtest.h>

#include "support/tool_guest.h"

namespace {

TEST(ShellLine, GoesOnAsItWasMeant) {
  host::Catalogue catalogue;
  for (const char* name : {"Chess", "Chess Deluxe", "Go"}) catalogue.Add(TestApplication(name));
  using Words = std::vector<std::string>;
  const struct {
    std::string line;
    std::size_t start;
    Words words;
  } cases[] = {
      {"re", 0, {"remove", "rename"}},
      {"show ch", 5, {"\"Chess Deluxe\"", "Chess"}},
      {"show \"Chess D", 5, {"\"Chess Deluxe\""}},
      {"rename Go G", 10, {"Go"}},
      {"add \"A B\" --t", 10, {"--types"}},
      {"tree ", 5, {"--help", "files", "registry"}},
      {"help of", 5, {"off"}},
      {"open /dev/nul", 5, {"/dev/null"}},
      {"nonsense ", 9, {}},
  };
  for (const auto& each : cases) {
    const host::Completion found = host::CompleteLine(catalogue, each.line);
    EXPECT_EQ(found.start, each.start) << each.line;
    EXPECT_EQ(found.words, each.words) << each.line;
  }
  const struct {
    const char *word, *meant;
  } mistyped[] = {{"verfiy", "verify"}, {"VERIFY", "verify"}, {"vrfy", "verify"}, {"shwo", "show"},
                  {"o", "on"},          {"catalogue", ""},    {"xyz", ""},        {"", ""}};
  for (const auto& [word, meant] : mistyped) {
    const std::string text = *meant ? "; did you mean \"" + std::string(meant) + "\"?" : "";
    EXPECT_EQ(host::DidYouMean(word, {"on", "show", "verify"}), text) << word;
  }
}

}  // namespace
