// Oddities of what the host says: of how much, and of one application among a hundred, whose entry in the
// list, icons or details are wrong in every way that there is.
#include "trials/odd_guests.h"

namespace trials {
namespace {

using host::Bytes;
using host::Items;
using host::Reply;
using Replies = std::vector<std::pair<std::string, Reply>>;  // with what is wrong in them

Reply With(const Items& items) {
  return {.bytes = host::Envelope(0, items.bytes())};
}

// Types and schemes that name other keys than their own, or none.
const Lines oddTexts = Split(
    "|\\|misfit\\..\\doc42|doc42\\OpenWithList\\42 (Mac).exe|..\\.doc42|.|.doc42|misfit\n|"
    "misfit\xFF\xC0\xED\xA0\x80|EXE|OWN42_auto_file|Tsrn.Url.42 (Mac)|Applications|x-42|misfit" +
    std::string(300, 'm') + "|misfit" + std::string(32000, 'm'));

Replies WrongDetails() {
  const auto endless = std::as_bytes(std::span("misfit", 6));
  Replies wrong = {{"nothing returned", {.bytes = Bytes(30), .returned = 0}},
                   {"a failure as the request's status", {.bytes = Bytes(30), .status = 0xF0000000}},
                   {"a flag of three bytes", With(Items().Add(host::flagItem, Bytes(3)))},
                   {"no type but for any", With(Items().Number(host::flagItem, 1))}};
  for (const std::uint32_t type : {host::textItem, host::defaultTypeItem, host::schemeItem}) {
    const std::string what = "type " + std::to_string(type);
    const auto good = Items().Text(host::textItem, "misfit");
    wrong.emplace_back(what + " without its NUL behind a good one", With(Items(good).Add(type, endless)));
    for (const std::string& text : oddTexts)
      wrong.emplace_back(what + " \"" + text.substr(0, 40) + "\"", With(Items(good).Text(type, text)));
  }
  return wrong;
}

Lines OddNames() {
  Lines names = Split(
      "| |.|..|CON|%s%n|.exe|Misfit\\inner|..\\Misfit|..\\..\\..\\..\\..\\..\\..\\Misfit|C:\\Misfit|"
      "\\\\.\\Misfit|Misfit (Mac)|Misfit (Mac).exe|Misfit\xED\xA0\x80|%APPDATA%Misfit");
  for (const char c : std::string("/\\<>:\"|?*\x01\x1f\n .\xff\xc3")) {
    names.push_back(std::string("Misfit") + c);
    names.push_back(c + std::string("Misfit"));
  }
  for (const std::size_t length : {200u, 240u, 245u, 246u, 250u, 255u, 256u, 300u, 1000u, 5000u, 20000u})
    names.push_back("Misfit" + std::string(length - 6, 'n'));
  return names;
}

Oddity Among(const std::string& what, const Misfit& misfit) {
  // What a misfit makes says whose it is, but for the keys of types and schemes.
  Lines own = {"isfit", misfit.name + " (Mac)", "Classes\\EXE"};
  for (const std::string& text : oddTexts) {
    if (text.empty() || text.find('\\') != std::string::npos) continue;
    own.push_back("Classes\\." + text);
    own.push_back("Classes\\" + text + "_auto_file");
  }
  // Names are taken as they are, so one that is a path leads out of the module's folders, and where neither
  // the sweep nor the withdrawal looks: what it made stays.
  Lines forGood;
  if (misfit.name.find('\\') != std::string::npos) {
    forGood = {"isfit", "Applications\\.", "Tsrn.Url.\\.", "Tsrn.Url...", "Tsrn.Url.\n", "MacApps\\."};
    own.insert(own.end(), forGood.begin(), forGood.end());
  }
  return {.name = "misfit: " + what,
          .applications = Oddity::Applications::Right,
          .commands = {Command::FirstOn},
          .isForeseen = true,
          .misfit = misfit,
          .untilOff = own,
          .forGood = forGood};
}

}  // namespace

std::vector<Oddity> HostOddities(const Setting&) {
  const Reply icons = With(Items().Add(host::bitmapItem, host::BlankBitmap(16, 16)));
  const Reply details = With(Items().Text(host::textItem, "misfit").Text(host::schemeItem, "misfit"));
  std::vector<Oddity> table;
  const auto add = [&](const std::string& what, const Misfit& misfit) {
    table.push_back(Among(what, misfit));
  };
  add("nothing", {"misfit", "Misfit", icons, details});
  add("its icons are a text", {"misfit", "Misfit", With(Items().Text(host::textItem, "misfit")), details});
  add("no icons come", {"misfit", "Misfit", {.bytes = icons.bytes, .returned = 0}, details});
  for (const auto& [what, wrong] : WrongDetails())
    add("details: " + what, {"misfit", "Misfit", icons, wrong});
  for (const std::string& id : {std::string(), "misfit" + std::string(20000, 'i'), std::string("misfit\xFF")})
    add("the identifier " + id, {id, "Misfit", icons, details});
  for (const std::string& name : OddNames()) add("the name " + name, {"misfit", name, icons, details});
  return table;
}

}  // namespace trials
