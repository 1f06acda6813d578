// Text between UTF-8 and UTF-16, and the comparison of names. Case is mapped unit by unit with the host's
// Unicode tables, which is what registry and file names need.
#include <clocale>
#include <cwctype>

#include "layer.h"

namespace platform {
namespace {

constexpr char32_t replacement = 0xFFFD;

void AppendUtf8(std::string& out, char32_t c) {
  const unsigned extra = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;  // bytes behind the first
  constexpr unsigned lead[] = {0, 0xC0, 0xE0, 0xF0};
  out += static_cast<char>(lead[extra] | c >> 6 * extra);
  for (unsigned left = extra; left-- > 0;) out += static_cast<char>(0x80 | (c >> 6 * left & 0x3F));
}

// Decodes one character at `i` and moves past it; a malformed sequence costs its valid prefix, at least a
// byte.
char32_t TakeUtf8(std::string_view text, std::size_t& i) {
  const auto lead = static_cast<unsigned char>(text[i++]);
  if (lead < 0x80) return lead;
  const int extra = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
  if (lead < 0xC2 || lead > 0xF4) return replacement;
  char32_t c = lead & (0x3Fu >> extra);
  for (int n = 0; n < extra; ++n) {
    const unsigned char next = i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
    unsigned char low = 0x80, high = 0xBF;
    if (n == 0 && lead == 0xE0) low = 0xA0;
    if (n == 0 && lead == 0xED) high = 0x9F;
    if (n == 0 && lead == 0xF0) low = 0x90;
    if (n == 0 && lead == 0xF4) high = 0x8F;
    if (next < low || next > high) return replacement;
    c = (c << 6) | (next & 0x3Fu);
    ++i;
  }
  return c;
}

}  // namespace

std::string ToUtf8(std::u16string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    const bool high = c >= 0xD800 && c < 0xDC00;
    if (high && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] < 0xE000) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00u);
    } else if (c >= 0xD800 && c < 0xE000) {
      c = replacement;
    }
    AppendUtf8(out, c);
  }
  return out;
}

std::u16string ToUtf16(std::string_view text) {
  std::u16string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const char32_t c = TakeUtf8(text, i);
    if (c < 0x10000) {
      out += static_cast<char16_t>(c);
    } else {
      out += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
      out += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
    }
  }
  return out;
}

char16_t Upcase(char16_t unit) {
  if (unit < 0x80) return unit >= 'a' && unit <= 'z' ? static_cast<char16_t>(unit - 32) : unit;
  static const locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  return static_cast<char16_t>(towupper_l(unit, unicode));
}

int CompareNames(std::u16string_view a, std::u16string_view b) {
  for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) {
    const char16_t x = Upcase(a[i]), y = Upcase(b[i]);
    if (x != y) return x < y ? -1 : 1;
  }
  return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
}

bool EqualNames(std::u16string_view a, std::u16string_view b) {
  return a.size() == b.size() && CompareNames(a, b) == 0;
}

}  // namespace platform
