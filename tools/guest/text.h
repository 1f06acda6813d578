// Text of the host tool: UTF-8 everywhere, UTF-16 only at the platform's calls. Case is folded for ASCII
// letters alone, which is what catalogue checks and listings need.
#pragma once

#include <windows.h>

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace host {

std::basic_string<WCHAR> Widen(std::string_view utf8);
std::string Narrow(std::basic_string_view<WCHAR> utf16);

// UTF-16 as it is stored: the text up to its NUL or the end, and the bytes of a text with its NUL.
std::string Utf16Text(std::span<const std::byte> bytes);
std::string Utf16Bytes(std::string_view utf8);

bool EqualNoCase(std::string_view a, std::string_view b);

// Orders paths of the guest as a tree is printed: a key, its values (behind valueMark), its subkeys.
inline constexpr char valueMark = '\x01';
struct PathLess {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const;
};

// Is the path one of what the key holds, at any depth?
bool IsBelow(std::string_view path, std::string_view key);

std::string Digest(std::string_view bytes);  // FNV-1a, 32 bits, as 8 hexadecimal digits
// "; did you mean \"verify\"?", should one of the known words be near.
std::string DidYouMean(std::string_view word, const std::vector<std::string>& known);
std::string WithThousands(std::uint64_t number);  // 12345 as "12,345"
std::string PathText(const std::filesystem::path& path);
std::filesystem::path PathOf(std::string_view utf8);

}  // namespace host
