#!/usr/bin/env bash
# tool.sh VELOMIRA_HOST CATALOGUE: what the tool promises to who calls it: exit statuses and messages, guests that
# survive, exports. Native build.
set -uo pipefail
host=$1 catalogue=$2
work=$(mktemp -d "${TMPDIR:-/tmp}/velomira-tool-XXXXXX")
trap 'rm -rf "$work"' EXIT
guest=$work/guest
faults=0

# expect STATUS TEXT ARGUMENT...: the tool ends so, and says the text.
expect() {
  local status=$1 text=$2 said got
  shift 2
  said=$("$host" "$@" 2>&1 </dev/null) && got=0 || got=$?
  if [ "$got" != "$status" ] || [[ $said != *"$text"* ]]; then
    printf 'velomira-host %s\n  ended with %s instead of %s; "%s" was to be in:\n%s\n' "$*" "$got" "$status" "$text" "$said"
    faults=$((faults + 1))
  fi
}
check() { # TEXT COMMAND...: the command succeeds
  local text=$1
  shift
  "$@" || { printf 'not so: %s\n' "$text"; faults=$((faults + 1)); }
}
state() { (cd "$1" && find . -printf '%p %T@ %s\n' | sort); }

# Misuse.
expect 2 '"vrfy" is not understood; did you mean "verify"?' vrfy
expect 2 '"--tre" is not understood; did you mean "--tree"?' run --catalogue "$catalogue" --tre
expect 2 'subcommand is required'
expect 2 '--catalogue is required' run
expect 2 '--png is required' icons Loom --guest "$guest"
expect 0 'velomira-host 1.' --version
expect 0 'verify' --help
unwritable() { # ARGUMENT...: with no room for its output the tool fails
  "$host" "$@" >/dev/full 2>/dev/null </dev/null
  check "with nowhere to say it, $1 fails" [ $? = 1 ]
}
unwritable --help

# What is no guest is refused, and stays as it is.
mkdir -p "$work/other" && touch "$work/other/thing"
expect 1 'is no guest' verify --guest "$work/typo" --catalogue "$catalogue"
check 'a folder that is not there is not made' [ ! -e "$work/typo" ]
expect 1 'other things in it' run --guest "$work/other" --catalogue "$catalogue"
check 'a folder with other things is left alone' [ "$(ls "$work/other")" = thing ]
expect 1 'cannot be loaded' run --guest "$guest" --catalogue "$catalogue" --module "$work/none.so"
check 'nothing is made before what can be checked is' [ ! -e "$guest" ]

# A whole story, and a judgement that writes nothing.
expect 0 '10 launchers, 10 shortcuts, 14 types, 8 schemes' run --guest "$guest" --catalogue "$catalogue"
expect 0 'no difference' verify --off --guest "$guest"
expect 1 'kept' verify --off --strict --guest "$guest"
expect 0 '* Sharing on again' run --guest "$guest" --catalogue "$catalogue" --keep-on
before=$(state "$guest")
expect 0 'Ink Garden: kept: the offer for .inkg' verify --guest "$guest"
expect 1 'Ink Garden: the launcher is missing' verify --guest "$guest" --catalogue "$catalogue"
expect 1 '"application": "Ink Garden"' verify --guest "$guest" --catalogue "$catalogue" --json
check 'a judgement changes nothing' [ "$before" = "$(state "$guest")" ]
echo junk >"$(find "$guest" -name 'Loom (Mac).lnk')"
expect 1 'Loom: the shortcut is no shell link' verify --guest "$guest"
rm "$(find "$guest" -name 'Loom (Mac).lnk')"
expect 1 'Loom: the shortcut is missing' verify --guest "$guest"
mv "$guest/registry.txt" "$work/kept.txt"
expect 1 'the launcher is there' verify --off --guest "$guest"
printf '[HKEY_CURRENT_USER]\nnonsense\n' >"$guest/registry.txt"
expect 1 "registry.txt: line 2" verify --guest "$guest"
expect 1 'nonsense' shell --guest "$guest" --catalogue "$catalogue"
mv "$work/kept.txt" "$guest/registry.txt"

# A script: what it says of itself, and where it is wrong.
cat >"$work/script" <<'END'
open game.tide
remove Loom
add Kite --types kite --schemes "kite"
diff
on
show Kite
open a.kite
open kite:x
open a.exe
save
rmove Kite
remove Kit
diff save
add "Kite
tree file
verify
off
diff save
open kite:x
END
said=$("$host" shell --guest "$work/script-guest" --catalogue "$catalogue" "$work/script")
check 'a script with faults fails' [ $? = 1 ]
for line in '.tide no application is known (nobody)' 'Loom is off the catalogue; the guest takes it over with the next "on"' \
  'no change since the last command' 'the guest mirrors 10 applications' 'example.added.1, icons 16 32 48 256' \
  'URL:kite (Mac)' '.kite the user is asked (nobody), offered: Kite' 'kite: opens with Kite (claimed), offered: Kite' \
  '.exe no application is known (nobody)' "$work/script:11: \"rmove\" is not understood; did you mean \"remove\"?" \
  "$work/script:12: Kit: no such application; did you mean \"Kite\"?" 'no change since it was saved' \
  "$work/script:14: a quotation mark is not closed" "$work/script:15: files|registry: file not in" 'no difference' \
  '    0 files: 0 came, 22 went, 0 changed' '  - HKCU\Software\Classes\kite' 'kite: no application is known (nobody)'; do
  check "the script says: $line" grep -qF -- "$line" <<<"$said"
done
expect 0 'no difference' verify --off --guest "$work/script-guest"
check 'nothing else of the script fails' [ "$(grep -c failed: <<<"$said")" = 4 ]

# Exports.
expect 0 '' export --guest "$guest" --reg "$work/out.reg" --json "$work/out.json"
reg=$(iconv -f utf-16 -t utf-8 "$work/out.reg")
check 'a registry file has its mark' [ "$(head -c 4 "$work/out.reg" | od -An -tx1)" = ' ff fe 57 00' ]
check 'a registry file has its head' [ "$(head -n 1 <<<"$reg")" = $'Windows Registry Editor Version 5.00\r' ]
check 'every line ends in CR LF' [ "$(grep -vc $'\r$' <<<"$reg")" = 0 ]
for line in '"beat_auto_file"=hex(0):' '@="\"C:\\Users\\guest\\AppData\\Roaming\\Tessarine\\Shared Applications\\Café Chess Deluxe (Mac).exe\" \"%1\""' \
  '[HKEY_CURRENT_USER\Software\Classes\Applications\星図 Starling (Mac).exe\SupportedTypes]'; do
  check "an export holds $line" grep -qxF "$line"$'\r' <<<"$reg"
done
check 'JSON holds a launcher' grep -q '"iconSizes"' "$work/out.json"
expect 1 'cannot be written' export --guest "$guest" --json "$work/none/out.json"
expect 0 'Tidepool-48.png' icons Tidepool --guest "$guest" --png "$work/icons"
mkdir "$work/one" && cp "$work/icons/Tidepool-48.png" "$catalogue/tidepool-48.png" "$work/one"
app() { printf '{"applications": [{"bundleId": "b", "name": "A", "icons": ["%s"]}]}' "$1" >"$work/one/catalogue.json"; }
app tidepool-48.png
echo on | "$host" shell --guest "$work/mono" --catalogue "$work/one" >/dev/null
app Tidepool-48.png  # the picture that a launcher gives back is the catalogue's
expect 0 'no difference' verify --guest "$work/mono" --catalogue "$work/one"
expect 1 'A (Mac).exe' diff "$work/mono" "$guest"
expect 0 'no difference' diff "$guest" "$guest"

# A recording: shown, played once more, and known when it is damaged.
expect 0 'no breach' run --guest "$work/told" --catalogue "$catalogue" --trace "$work/told.jsonl"
expect 0 'bundleId example.loom, name Loom' trace "$work/told.jsonl" --code list
expect 0 'documentType loom' trace "$work/told.jsonl" --app Loom
expect 1 'holds nothing of that' trace "$work/told.jsonl" --app Lom
expect 0 'The guest came out the same' replay "$work/told.jsonl" --guest "$work/again"
expect 1 'the guest must be a new one' replay "$work/told.jsonl" --guest "$work/again"
damaged() { # TEXT COMMAND...: what the command makes of the recording is not played
  local text=$1
  shift
  "$@" "$work/told.jsonl" >"$work/cut.jsonl"
  expect 1 "cut.jsonl: line $text" replay "$work/cut.jsonl" --guest "$work/none"
}
damaged '8: is cut or changed' head -c 5000
damaged '5: is cut or changed' sed '5s/:/;/'
damaged '5: is cut or changed' sed 5d
damaged '1: is cut or changed' sed 1d
damaged '103: the recording stops here, without its end' head -n -1
damaged '104: is cut or changed' head -c -1
expect 1 'cannot be written' run --guest "$work/told" --catalogue "$catalogue" --trace "$work/none/told.jsonl"

for command in 'verify --off' 'report /dev/full' 'icons Tidepool --png '"$work/icons" 'export --json /dev/full'; do
  # shellcheck disable=SC2086
  unwritable $command --guest "$guest"
done
{ sleep 0.3; "$host" verify --guest "$guest" 2>/dev/null; echo $? >"$work/status"; } | :
check 'a reader that has gone is a failure' [ "$(cat "$work/status")" = 1 ]
unwritable check --catalogue "$catalogue"
unwritable trace "$work/told.jsonl"
unwritable diff "$guest" "$guest"
unwritable replay "$work/told.jsonl" --guest "$work/muted"
for command in run shell; do
  unwritable "$command" --catalogue "$catalogue" --guest "$work/told"
done

# The story ends well with any catalogue.
apps() { # NAME...: applications of these names
  local name
  for name; do printf '%s{"bundleId": "b.%s", "name": "%s", "icons": ["i.png"]}' "$comma" "$name" "$name"; comma=,; done
}
story() { # APPLICATIONS...: the items of a catalogue
  stories=$((stories + 1))
  local told=$work/story-$stories
  mkdir "$told" && cp "$catalogue/tidepool-48.png" "$told/i.png"
  printf '{"applications": [%s]}' "$*" >"$told/catalogue.json"
  expect 0 '* Sharing on again' run --guest "$told/guest" --catalogue "$told" --keep-on
  expect 0 '' verify --guest "$told/guest"
}
stories=0 comma='' long=$(printf 'x%.0s' {1..200})
story
story "$(apps 1)"
story "$(apps 1 2)"
story "$(apps Newcomer 1 2)"
story "$(apps '1 Deluxe' 1 2)"
story "$(apps "${long:100}" 1 2)"
story "$(apps {1..98})"
story '{"bundleId": "a", "name": "A"}, {"bundleId": "b", "name": "B", "icons": [{"file": "i.png", "format": "bmp24"}]}'
types='["exe", "a.b", "TXT", "txt", "'$long'"]'
story '{"bundleId": "a", "name": "A", "icons": ["i.png"], "documentTypes": '"$types"', "defaultTypes": '"$types"'}, ' \
  '{"bundleId": "b", "name": "B", "icons": ["i.png"],' \
  '"urlSchemes": [".txt", "txt_auto_file", "Applications", "a b", "'"$long"'"]}, ' "$(apps 3)"

# A catalogue that is not one.
mkdir "$work/odd" && ln -s /dev/zero "$work/odd/catalogue.json"
expect 1 'is no plain file' check --catalogue "$work/odd"
check 'every fault and oddity of a catalogue is named at its place' diff \
  <(cd "$(dirname "$0")/faulty" && "$host" check --catalogue . 2>&1) "$(dirname "$0")/faulty/faults.txt"
expect 1 'unknown format "gif"' run --guest "$work/none" --catalogue "$(dirname "$0")/faulty"
refused() { # TEXT JSON
  echo "$2" >"$work/one/catalogue.json"
  expect 1 "$1" check --catalogue "$work/one"
}
refused '2:1: syntax error while parsing object key' '{'
refused '1:1: the list "applications" is missing' '{"apps": []}'
refused '1:1: type must be object, but is array' '[]'

# One host at a time, and an interrupt that leaves a whole guest.
mkfifo "$work/input"
"$host" shell --guest "$work/live" --catalogue "$catalogue" --trace "$work/live.jsonl" <"$work/input" >"$work/said" 2>&1 &
player=$!
exec 3>"$work/input"
printf 'on\n' >&3
until [ -f "$work/live/registry.txt" ] && grep -q 'Loom (Mac)' "$work/live/registry.txt"; do sleep 0.1; done
expect 1 "process $player" shell --guest "$work/live" --catalogue "$catalogue"
expect 1 "process $player" verify --guest "$work/live" --catalogue "$catalogue"
kill -INT "$player"
wait "$player"
check 'an interrupted host ends with status 1' [ $? = 1 ]
exec 3>&-
expect 0 'no difference' verify --guest "$work/live" --catalogue "$catalogue"
expect 0 'The guest came out the same' replay "$work/live.jsonl" --guest "$work/live-again"
check 'an interrupt is said' grep -q 'interrupted' "$work/said"

exit $((faults > 0))
