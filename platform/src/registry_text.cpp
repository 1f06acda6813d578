// The registry as text and back, and the keys that tests forbid. Names and texts escape what would not
// survive a UTF-8 line: "\x0007" and the like inside quotation marks, "^0007" in a path, where "\" separates.
#include <winreg.h>

#include <platform/control.h>
#include <cstring>
#include <stdexcept>

#include "hives.h"

namespace platform {
namespace {

constexpr std::u16string_view hexDigits = u"0123456789abcdef";

void AppendHex(std::u16string& out, std::uint32_t number, int digits) {
  while (digits-- > 0) out += hexDigits[(number >> (4 * digits)) & 0xF];
}

bool IsHigh(char16_t unit) {
  return (unit & 0xFC00) == 0xD800;
}
bool IsLow(char16_t unit) {
  return (unit & 0xFC00) == 0xDC00;
}

// `quoted` tells a name or text in quotation marks from a key's name in a path.
std::u16string Escape(std::u16string_view text, bool quoted) {
  std::u16string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t unit = text[i];
    if (IsHigh(unit) && i + 1 < text.size() && IsLow(text[i + 1])) {
      out += text.substr(i++, 2);
    } else if (unit < u' ' || unit == 0x7F || IsHigh(unit) || IsLow(unit) || (!quoted && unit == u'^')) {
      out += quoted ? u"\\x" : u"^";
      AppendHex(out, unit, 4);
    } else {
      if (quoted && (unit == u'"' || unit == u'\\')) out += u'\\';
      out += unit;
    }
  }
  return out;
}

void Write(std::u16string& out, const Node& key, const std::u16string& path) {
  if (!out.empty()) out += u'\n';
  out += u'[' + path + u"]\n";
  for (const Value& value : key.values) {
    out += value.name.empty() ? u"@" : u'"' + Escape(value.name, true) + u'"';
    out += u'=';
    std::u16string text(value.data.size() / 2, u'\0');
    if (!text.empty()) std::memcpy(text.data(), value.data.data(), text.size() * 2);
    if (value.type == REG_SZ && value.data.size() % 2 == 0 && text.ends_with(u'\0')) {
      text.pop_back();
      out += u'"' + Escape(text, true) + u'"';
    } else {
      int digits = 1;
      while (digits < 8 && value.type >> (4 * digits)) ++digits;
      out += u"hex(";
      AppendHex(out, value.type, digits);
      out += u"):";
      for (std::size_t i = 0; i < value.data.size(); ++i) {
        if (i > 0) out += u',';
        AppendHex(out, value.data[i], 2);
      }
    }
    out += u'\n';
  }
  for (const auto& subkey : key.subkeys) Write(out, *subkey, path + u'\\' + Escape(subkey->name, false));
}

// One line of the text, taken apart from its front.
class Line {
 public:
  Line(std::string place, std::u16string_view text) : place_(std::move(place)), whole_(text), rest_(text) {}

  [[noreturn]] void Refuse() const {
    throw std::invalid_argument(place_ + ": malformed: " + ToUtf8(Escape(whole_.substr(0, 60), false)));
  }
  bool AtEnd() const { return rest_.empty(); }
  bool Take(std::u16string_view expected) {
    if (!rest_.starts_with(expected)) return false;
    rest_.remove_prefix(expected.size());
    return true;
  }
  void Need(std::u16string_view expected) {
    if (!Take(expected)) Refuse();
  }
  char16_t Unit() {
    if (rest_.empty()) Refuse();
    const char16_t unit = rest_.front();
    rest_.remove_prefix(1);
    return unit;
  }
  std::uint32_t Hex(int digits) {
    std::uint32_t number = 0;
    while (digits-- > 0) {
      const std::size_t digit = hexDigits.find(Unit());
      if (digit == std::u16string_view::npos) Refuse();
      number = number << 4 | static_cast<std::uint32_t>(digit);
    }
    return number;
  }
  // The rest of a text whose opening quotation mark was taken.
  std::u16string Quoted() {
    std::u16string text;
    while (!Take(u"\"")) {
      if (Take(u"\\x")) {
        text += static_cast<char16_t>(Hex(4));
      } else {
        Take(u"\\");
        text += Unit();
      }
    }
    return text;
  }
  // A key's name in a path, up to the separator or the path's end.
  std::u16string Name(std::u16string_view end) {
    std::u16string name;
    while (!AtEnd() && !rest_.starts_with(u'\\') && (end.empty() || rest_ != end)) {
      name += Take(u"^") ? static_cast<char16_t>(Hex(4)) : Unit();
    }
    if (name.empty() || name.size() > maxKeyName) Refuse();
    return name;
  }

 private:
  std::string place_;
  std::u16string_view whole_;
  std::u16string_view rest_;
};

// The root that a path begins with.
const std::shared_ptr<Node>& ReadRoot(Line& line, std::u16string_view end, const Roots& roots) {
  const std::u16string name = line.Name(end);
  if (name != roots.user->name && name != roots.machine->name) line.Refuse();
  return name == roots.user->name ? roots.user : roots.machine;
}

// The key that a "[path]" line names, made with its parents when missing.
std::shared_ptr<Node> ReadKey(Line& line, const Roots& roots) {
  line.Need(u"[");
  auto key = ReadRoot(line, u"]", roots);
  while (line.Take(u"\\")) {
    const std::u16string name = line.Name(u"]");
    auto next = FindSubkey(*key, name);
    key = next ? next : AddSubkey(*key, name);
  }
  line.Need(u"]");
  return key;
}

void ReadValue(Line& line, Node& key) {
  std::u16string name;
  if (!line.Take(u"@")) {
    line.Need(u"\"");
    name = line.Quoted();
  }
  line.Need(u"=");
  if (line.Take(u"\"")) {
    const std::u16string text = line.Quoted();
    SetValue(key, name, REG_SZ, {reinterpret_cast<const BYTE*>(text.c_str()), (text.size() + 1) * 2});
    return;
  }
  line.Need(u"hex(");
  DWORD type = 0;
  for (int digits = 0; !line.Take(u"):"); ++digits) {
    if (digits == 8) line.Refuse();
    type = type << 4 | line.Hex(1);
  }
  std::vector<BYTE> data;
  while (!line.AtEnd()) {
    if (!data.empty()) line.Need(u",");
    data.push_back(static_cast<BYTE>(line.Hex(2)));
  }
  SetValue(key, name, type, data);
}

}  // namespace

std::string SaveRegistry() {
  std::lock_guard lock(TheHives().mutex);
  std::u16string out;
  for (const auto& root : {TheHives().user, TheHives().machine}) Write(out, *root, root->name);
  return ToUtf8(out);
}

void LoadRegistry(const std::string& text) {
  const Roots roots = MakeRoots();
  const std::u16string units = ToUtf16(text);
  std::u16string_view rest = units;
  std::shared_ptr<Node> key;
  for (std::size_t number = 1; !rest.empty(); ++number) {
    const std::u16string_view content = rest.substr(0, rest.find(u'\n'));
    rest.remove_prefix(std::min(content.size() + 1, rest.size()));
    if (content.empty()) continue;
    Line line("line " + std::to_string(number), content);
    if (content.starts_with(u'[')) {
      key = ReadKey(line, roots);
    } else if (key) {
      ReadValue(line, *key);
    }
    if (!line.AtEnd()) line.Refuse();
  }
  std::lock_guard lock(TheHives().mutex);
  ReplaceHives(roots);
}

void DenyKey(const std::string& path, bool deny) {
  std::lock_guard lock(TheHives().mutex);
  const std::u16string units = ToUtf16(path);
  Line line("DenyKey", units);
  std::u16string plain = ReadRoot(line, {}, TheHives())->name;
  while (line.Take(u"\\")) plain += u'\\' + line.Name({});
  if (deny) {
    TheHives().forbidden.insert(Fold(plain));
  } else {
    TheHives().forbidden.erase(Fold(plain));
  }
}

}  // namespace platform
