// Conversion and comparison of the host tool's text. Ill-formed text converts to an empty one.
#include "guest/text.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <utility>

#include "guest/bytes.h"

namespace host {
namespace {

unsigned char Fold(char c) {
  return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}

// Separators sort below every letter, so that what lies below a key follows it at once.
int Rank(char c) {
  return c == valueMark ? 0 : c == '\\' ? 1 : Fold(c) + 2;
}

}  // namespace

std::basic_string<WCHAR> Widen(std::string_view utf8) {
  const int bytes = static_cast<int>(utf8.size());
  std::basic_string<WCHAR> wide;
  if (bytes == 0) return wide;
  const int units = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, nullptr, 0);
  wide.resize(static_cast<std::size_t>(units));
  MultiByteToWideChar(CP_UTF8, 0, utf8.data(), bytes, wide.data(), units);
  return wide;
}

std::string Narrow(std::basic_string_view<WCHAR> utf16) {
  const int units = static_cast<int>(utf16.size());
  std::string utf8;
  if (units == 0) return utf8;
  const int bytes = WideCharToMultiByte(CP_UTF8, 0, utf16.data(), units, nullptr, 0, nullptr, nullptr);
  utf8.resize(static_cast<std::size_t>(bytes));
  WideCharToMultiByte(CP_UTF8, 0, utf16.data(), units, utf8.data(), bytes, nullptr, nullptr);
  return utf8;
}

std::string Utf16Text(std::span<const std::byte> bytes) {
  std::basic_string<WCHAR> text;
  for (std::size_t at = 0; at + 2 <= bytes.size() && GetU16(bytes, at) != 0; at += 2)
    text += static_cast<WCHAR>(GetU16(bytes, at));
  return Narrow(text);
}

std::string Utf16Bytes(std::string_view utf8) {
  const std::basic_string<WCHAR> wide = Widen(utf8);
  return {reinterpret_cast<const char*>(wide.c_str()), (wide.size() + 1) * sizeof(WCHAR)};
}

bool EqualNoCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return Fold(x) == Fold(y); });
}

bool PathLess::operator()(std::string_view a, std::string_view b) const {
  const auto [x, y] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());  // most begin alike for long
  return std::lexicographical_compare(x, a.end(), y, b.end(),
                                      [](char left, char right) { return Rank(left) < Rank(right); });
}

bool IsBelow(std::string_view path, std::string_view key) {
  return path.size() > key.size() && EqualNoCase(path.substr(0, key.size()), key) &&
         (path[key.size()] == '\\' || path[key.size()] == valueMark);
}

std::string Digest(std::string_view bytes) {
  std::uint32_t hash = 2166136261u;
  for (const char c : bytes) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
  char text[16];
  std::snprintf(text, sizeof text, "%08x", static_cast<unsigned>(hash));
  return text;
}

std::string DidYouMean(std::string_view word, const std::vector<std::string>& known) {
  std::string nearest;
  std::size_t least = (word.size() + 2) / 3 + 1;  // more edits than that make another word
  for (const std::string& each : known) {
    std::vector<std::size_t> edits(each.size() +
                                   1);  // from the word's beginning to each beginning of the other
    std::iota(edits.begin(), edits.end(), 0);
    for (std::size_t i = 0; i < word.size(); ++i) {
      std::size_t diagonal = std::exchange(edits[0], i + 1);
      for (std::size_t j = 0; j < each.size(); ++j) {
        const std::size_t replaced = diagonal + (Fold(word[i]) != Fold(each[j]));
        diagonal = edits[j + 1];
        edits[j + 1] = std::min({replaced, diagonal + 1, edits[j] + 1});
      }
    }
    if (edits.back() >= least) continue;
    least = edits.back();
    nearest = each;
  }
  return nearest.empty() ? "" : "; did you mean \"" + nearest + "\"?";
}

std::string WithThousands(std::uint64_t number) {
  const std::string digits = std::to_string(number);
  std::string text;
  for (std::size_t i = 0; i < digits.size(); ++i) {
    if (i != 0 && (digits.size() - i) % 3 == 0) text += ',';
    text += digits[i];
  }
  return text;
}

std::string PathText(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return {text.begin(), text.end()};
}

std::filesystem::path PathOf(std::string_view utf8) {
  return std::u8string(utf8.begin(), utf8.end());
}

}  // namespace host
