// What random catalogues and guests are made of.
#include "trials/dice.h"

#include "guest/places.h"
#include "support/hive.h"
#include "trials/guest.h"

namespace trials {
namespace {

const Lines names = Split(
    "Atlas|Brush|Café|星図|A|A (Mac)|A (Mac) (Mac)|tool.exe|Comma, Inc.|x  y|100%|Ünïcode|λ-Kalkül|🎨 Paint|-|"
    "'quoted'|Foo & "
    "Bar|#1|~|.hidden|(Mac)|Mac|Tsrn.Url.A|[brackets]|{braces}|a=b;c|Applications|_auto_file|%1|"
    "^0041|名前.lnk|A rather long name that takes nearly all of the hundred bytes which a catalogue allows "
    "for one "
    "name");
const Lines types = Split(
    "txt|md|pdf|png|jpeg|html|exe|com|lnk|ico|BAT|a|文書|été|tar.gz|x "
    "y|c++|_|%1|mp3|wav|doc|docx|key|numbers|"
    "pages|^2|_auto_file|(Mac)");
const Lines schemes =
    Split("http|https|mailto|ftp|sms|x-atlas|x-brush|web+foo|äöü|irc|tel|a|scheme (Mac)|x_auto_file");
// Schemes, in the spelling above, that other programs may have declared.
const Lines declaredSchemes = Split("http|mailto|ftp|irc|tel");

Lines Some(Dice& dice, const Lines& pool, std::size_t most) {
  Lines some(dice.Chance(30) ? 0 : dice.Below(most + 1));
  for (std::string& each : some) each = dice.Spelt(dice.Of(pool));
  return some;
}

}  // namespace

std::string Dice::Spelt(std::string text) {
  if (!Chance(25)) return text;
  for (char& c : text) {
    if (((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) && Chance(50)) c ^= 0x20;
  }
  return text;
}

host::Catalogue RandomCatalogue(Dice& dice) {
  static const host::Icon good = host::PlainIcon(), refused = host::RefusedIcon(good);
  Lines shuffled = names, ids;
  for (std::size_t i = 0; i < names.size(); ++i)
    ids.push_back((i % 9 == 0 ? "自.random." : "random.") + std::to_string(i));
  dice.Shuffle(shuffled);
  dice.Shuffle(ids);
  host::Catalogue catalogue;
  for (std::size_t i = 0, count = dice.Below(21); i < count; ++i) {
    host::Application app;
    app.bundleId = ids[i];
    app.name = dice.Spelt(shuffled[i]).substr(0, 100);
    app.documentTypes = Some(dice, types, 7);
    app.defaultTypes = Some(dice, types, 3);
    for (const std::string& type : app.documentTypes) {
      if (dice.Chance(30)) app.defaultTypes.push_back(dice.Spelt(type));
    }
    app.anyType = dice.Chance(20);
    app.urlSchemes = Some(dice, schemes, 4);
    for (std::size_t left = dice.Chance(5) ? 0 : 1 + dice.Below(3); left > 0; --left)
      app.icons.push_back(dice.Chance(25) ? refused : good);
    catalogue.Add(std::move(app));
  }
  return catalogue;
}

void AddForeignEntries(Dice& dice) {
  const auto put = [&](std::size_t percent, const std::string& key, const std::string& value,
                       const std::string& text) {
    if (dice.Chance(percent)) hive::PutText(key, value, text);
  };
  // Of this user or of the whole machine.
  const auto classes = [&] {
    return dice.Chance(40) ? "HKLM\\Software\\Classes\\" : host::classesKey + "\\";
  };
  const std::string command = "\\shell\\open\\command", open = "foreign.exe \"%1\"";
  for (const std::string& type : types) {
    if (dice.Chance(60)) continue;
    const std::string key = classes() + "." + dice.Spelt(type), progId = "Foreign." + type;
    if (dice.Chance(60)) {
      hive::PutText(key, "", progId);
      hive::PutText(classes() + progId + command, "", open);
    }
    put(40, key, "PerceivedType", "document");
    put(20, key + "\\ShellNew", "NullFile", "");
    put(40, key + "\\OpenWithList\\foreign.exe", "", "");
    put(40, key + "\\OpenWithProgids", progId, "");
  }
  // A scheme that somebody has declared stays as it is, even when its description ends like ours: by the icon
  // the withdrawal tells it from ours.
  for (const std::string& scheme : declaredSchemes) {
    if (dice.Chance(50)) continue;
    const std::string key = classes() + dice.Spelt(scheme);
    put(100, key, "URL Protocol", dice.Chance(50) ? "" : "yes");
    put(100, key + "\\DefaultIcon", "", "foreign.exe");
    put(80, key, "", "URL:" + scheme + (dice.Chance(20) ? host::launcherSuffix : ""));
    put(80, key + command, "", open);
  }
  for (const std::string& exe : Split("foreign.exe|Lower (mac).exe|Atlas.exe|Atlas (Mac).exe.old|(Mac).exe"))
    put(50, host::applicationsKey + "\\" + exe + command, "", open);
  for (const std::string& progId : Split("foreign_auto_file|rtf_auto_file|Tsrn.Url.Foreign|Foreign (Mac)"))
    put(50, host::classesKey + "\\" + progId + command, "",
        "\"" + host::LauncherFolder().substr(0, 20) + "\\" + open);
  for (const std::string& name : Split("Foreign|Atlas|Elsewhere (mac)")) {
    put(50, host::registeredKey, name, "Software\\Foreign\\Capabilities");
    put(30, host::macAppsKey + "\\" + name, "Kept", "yes");
  }
  for (const std::string& folder : {host::LauncherFolder(), host::ShortcutFolder()}) {
    for (const std::string& file : Split("foreign.exe|Foreign (Mac).lnk|Other\\Atlas (Mac).exe"))
      PutFile(folder + "\\..\\" + file, "foreign");
  }
  // Inside the folder it stays while sharing is on, and goes with the folder.
  if (dice.Chance(20)) PutFile(host::LauncherFolder() + "\\foreign.exe", "foreign");
}

}  // namespace trials
