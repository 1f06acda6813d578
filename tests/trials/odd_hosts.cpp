// Oddities of what the host says: of how much, and of one application among a hundred, whose entry in the
// list, icons or details are wrong in every way that there is.
#include <platform/control.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "trials/odd_guests.h"

namespace trials {
namespace {

using host::Bytes;
using host::Reply;
using Replies = std::vector<std::pair<std::string, Reply>>;

// From the first call of the function on there is no room for what it writes.
Oddity FullDisk(const std::string& function) {
  const auto make = [=] {
    platform::FaultPlan plan;
    plan.action = platform::FaultPlan::Action::Fail;
    plan.call = 1;
    plan.function = function;
    plan.repeat = true;
    plan.error = ERROR_DISK_FULL;
    platform::ArmFaultPlan(plan);
  };
  const auto lift = [=] {
    platform::DisarmFaultPlan();
    if (platform::CallsFailed() == 0) throw std::runtime_error("the disk was never full");
  };
  return {"disk full: " + function, make, lift, Fate::Any, {Road::Empty, Road::Changed}};
}

// ---- Replies about the misfit --------------------------------------------------------------------------

void Set(Bytes& bytes, std::size_t at, std::size_t number, std::size_t size = 4) {
  std::memcpy(bytes.data() + at, &number, size);
}

Bytes BytesOf(std::string_view text) {
  const auto bytes = std::as_bytes(std::span(text));
  return {bytes.begin(), bytes.end()};
}

Reply With(const host::Items& items) {
  return {.bytes = host::Envelope(0, items.bytes())};
}
Reply GoodIcons() {
  return With(host::Items().Add(host::bitmapItem, host::BlankBitmap(16, 16)));
}
Reply GoodDetails() {
  host::Items items;
  for (const std::uint32_t type : {host::textItem, host::defaultTypeItem, host::schemeItem})
    items.Text(type, "misfit");
  return With(items);
}

// The reply with each of its numbers at `from` up to `to`, of `size` bytes, replaced by each of the values.
void AddNumbers(Replies& wrong, const Reply& good, std::size_t from, std::size_t to, std::size_t size,
                const std::vector<std::uint32_t>& values) {
  for (std::size_t at = from; at < to; at += size) {
    for (const std::uint32_t value : values) {
      wrong.emplace_back("number at " + std::to_string(at) + " is " + std::to_string(value), good);
      Set(wrong.back().second.bytes, at, value, size);
    }
  }
}

// What can be wrong with a reply of either kind.
Replies WrongReplies(Kind kind, const Reply& good) {
  constexpr std::size_t header = host::envelopeHeader;
  const std::uint32_t room = RoomOf(kind);
  Replies wrong = {{"nothing returned", {.bytes = good.bytes, .returned = 0}},
                   {"a failure as the request's status", {.bytes = good.bytes, .status = 0xF0000000}}};
  AddNumbers(wrong, good, 0, header + host::itemHeader, 4,
             {0, 1, 2, 0x1000, room, room + 1, 0x80000000, 0xFFFFFFF4, 0xFFFFFFFF});
  // Shorter or longer, which the envelope says or not.
  for (const std::size_t size : {std::size_t{0}, std::size_t{10}, header, header + 6, header + 14,
                                 good.bytes.size() + 1, header + room, header + room + 4096}) {
    for (const bool isSaid : {false, true}) {
      if (isSaid && size < header) continue;
      wrong.emplace_back(std::to_string(size) + (isSaid ? " bytes, as is said" : " bytes"), good);
      wrong.back().second.bytes.resize(size, std::byte{0xAA});
      if (isSaid) Set(wrong.back().second.bytes, 16, size - header);
    }
  }
  return wrong;
}

// Types and schemes that name other keys than their own, or none.
const Lines oddTexts = Split(
    "|\\|misfit\\..\\doc2a|doc2a\\OpenWithList\\2a (Mac).exe|..\\.doc2a|.|.doc2a|misfit\n|"
    "misfit\xFF\xC0\xED\xA0\x80|EXE|OWN2a_auto_file|Tsrn.Url.2a (Mac)|Applications|x-2a|misfit" +
    std::string(300, 'm') + "|misfit" + std::string(32000, 'm'));

Replies WrongDetails() {
  const Bytes endless = BytesOf("misfit");
  const auto good = [] { return host::Items().Text(host::textItem, "misfit"); };
  host::Items crowd;
  for (int i = 0; i < 2000; ++i) crowd.Text(host::textItem, "misfit");
  Replies wrong = {
      {"a type without its NUL", With(host::Items().Add(host::textItem, endless))},
      {"a default type without its NUL", With(host::Items().Add(host::defaultTypeItem, endless))},
      {"a scheme without its NUL", With(host::Items().Add(host::schemeItem, endless))},
      {"a scheme without its NUL behind good ones", With(good().Add(host::schemeItem, endless))},
      {"a flag of three bytes", With(host::Items().Add(host::flagItem, Bytes(3)))},
      {"no type but for any", With(host::Items().Number(host::flagItem, 1))},
      {"two thousand types", With(crowd)},
  };
  for (const std::string& text : oddTexts) {
    for (const std::uint32_t type : {host::textItem, host::defaultTypeItem, host::schemeItem}) {
      wrong.emplace_back("type " + std::to_string(type) + " \"" + text.substr(0, 40) + "\"",
                         With(good().Text(type, text)));
    }
  }
  return wrong;
}

Replies WrongIcons(const Reply& good) {
  constexpr std::size_t start = host::envelopeHeader + host::itemHeader, end = start + 54;  // of the bitmap
  host::Items crowd;
  for (int i = 0; i < 20000; ++i) crowd.Add(host::bitmapItem, {});
  Replies wrong = {{"a text", With(host::Items().Text(host::textItem, "misfit"))},
                   {"no bytes", With(host::Items().Add(host::bitmapItem, {}))},
                   {"twenty thousand of no bytes", With(crowd)},
                   {"a header of 53 bytes", With(host::Items().Add(host::bitmapItem, Bytes(53)))}};
  AddNumbers(wrong, good, start, end, 2, {0, 1, 17, 24, 0x7FFF, 0x8000, 0xFFFF});
  return wrong;
}

}  // namespace

std::vector<Oddity> HostOddities(const Setting& setting) {
  std::vector<Oddity> table = {{.name = "a thousand applications",
                                .roads = {Road::Empty},
                                .foreseen = true,
                                .shared = &setting.thousand}};
  for (const char* function :
       {"CopyFileW", "BeginUpdateResourceW", "UpdateResourceW", "EndUpdateResourceW", "IPersistFile::Save",
        "SHCreateDirectoryExW", "RegCreateKeyExW", "RegSetValueExW", "SHSetValueW"}) {
    table.push_back(FullDisk(function));
  }

  // What a misfit makes says whose it is, but for the keys of types and schemes.
  Lines own = {"isfit", "Classes\\EXE"};
  for (const std::string& text : oddTexts) {
    if (text.empty() || text.find('\\') != std::string::npos) continue;
    own.push_back("Classes\\." + text);
    own.push_back("Classes\\" + text + "_auto_file");
  }
  // Names are taken as they are, so one that is a path leads out of the module's folders, and where neither
  // the sweep nor the withdrawal looks: what it made stays.
  const Lines ofPaths = {"isfit",       "Applications\\.", "Tsrn.Url.\\.",
                         "Tsrn.Url...", "Tsrn.Url.\n",     "MacApps\\."};
  const auto add = [&](const std::string& what, const Misfit& misfit) {
    const bool isPath = misfit.name.find('\\') != std::string::npos;
    table.push_back({.name = "misfit: " + what,
                     .roads = {Road::Empty},
                     .foreseen = true,
                     .shared = &setting.hundred,
                     .misfit = misfit,
                     .untilOff = own,
                     .forGood = isPath ? ofPaths : Lines{}});
    Lines& all = table.back().untilOff;
    all.push_back(misfit.name + " (Mac)");
    all.insert(all.end(), table.back().forGood.begin(), table.back().forGood.end());
  };
  const Reply icons = GoodIcons(), details = GoodDetails();
  const auto with = [&](const std::string& id, const std::string& name) {
    return Misfit{id, name, icons, details};
  };
  const Misfit good = with("misfit", "Misfit");
  add("nothing", good);
  for (const Kind kind : {Kind::Icons, Kind::Details}) {
    const bool isIcons = kind == Kind::Icons;
    Misfit failing = good;
    failing.failing = kind;
    add(isIcons ? "a failing request for icons" : "a failing request for details", failing);
    for (const Replies& wrong :
         {WrongReplies(kind, isIcons ? icons : details), isIcons ? WrongIcons(icons) : WrongDetails()}) {
      for (const auto& [what, reply] : wrong) {
        add((isIcons ? "icons: " : "details: ") + what,
            {good.id, good.name, isIcons ? reply : icons, isIcons ? details : reply});
      }
    }
  }
  add("an empty identifier", with("", "Misfit"));
  add("an identifier of 20,000 letters", with("misfit" + std::string(20000, 'i'), "Misfit"));
  add("an ill-formed identifier", with("misfit\xFF", "Misfit"));
  for (const std::size_t length : {200u, 240u, 245u, 246u, 250u, 255u, 256u, 300u, 1000u, 5000u, 20000u})
    add("a name of " + std::to_string(length) + " letters",
        with("misfit", "Misfit" + std::string(length - 6, 'n')));
  for (const char c : std::string("/\\<>:\"|?*\x01\x1f\n .\xff\xc3")) {
    for (const std::string& name : {std::string("Misfit") + c, std::string(1, c) + "Misfit"})
      add("the name " + name, with("misfit", name));
  }
  for (const std::string& name :
       Split("| |.|..|CON|%s%n|.exe|Misfit\\inner|..\\Misfit|..\\..\\..\\..\\..\\..\\..\\Misfit|C:\\Misfit|"
             "\\\\.\\Misfit|Misfit (Mac)|Misfit (Mac).exe|Misfit\xED\xA0\x80|%APPDATA%Misfit")) {
    add("the name " + name, with("misfit", name));
  }
  return table;
}

}  // namespace trials
