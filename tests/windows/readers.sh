#!/bin/bash
# What the module wrote under Wine, as programs see it that were written by others: readers.sh BUILD_FOLDER
# NATIVE_HOST. A guest with sharing on is read by wrestool, icotool, readpe, peres and lnkinfo, by shell_view (the
# shell's own interfaces), and beside a guest that the native build has made; then every launcher is started.
# VELOMIRA_WINEPREFIX names the guest. Prints each disagreement.
set -u
bin=$1/bin native=$2
source=$(cd "$(dirname "$0")/../.." && pwd)
catalogue=$source/examples/catalogue
failures=0

fail() { echo "readers.sh: $*" >&2; failures=$((failures + 1)); }
die() { fail "$@"; exit 1; }
expect() { [[ $2 == "$3" ]] || fail "$1: expected \"$2\", found \"$3\""; } # WHAT EXPECTED FOUND
for reader in wrestool icotool readpe peres lnkinfo iconv gzip; do
  command -v "$reader" >/dev/null || die "the reader $reader is not installed"
done
[[ -x $native ]] || die "$native is missing: build it first (preset native-debug)"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
wine() { "$source/cmake/wine_env.sh" "$@"; }

wine "$bin/velomira_tests.exe" --gtest_brief=1 '--gtest_filter=FilesTest.*' >"$work/log" || die "no empty guest"
share() { "$@" <<<on >"$work/log" 2>&1 || { cat "$work/log" >&2; die "sharing does not go on"; }; }
share wine "$bin/velomira-host.exe" shell --catalogue "$catalogue"
share "$native" shell --catalogue "$catalogue" --guest "$work/native"
wine "$bin/shell_view.exe" show | tr -d '\r' >"$work/shown" || die "shell_view fails"
shown() { grep "^$1"$'\t'"$2"$'\t' "$work/shown" | cut -f3-; } # KIND FILE

# Bundle identifier, name, and whether it has schemes, of each application.
awk -F'"' '/"bundleId"/ {id = $4} /"name"/ {name = $4; schemes = 0} /"urlSchemes"/ {schemes = 1}
  /^    }/ {print id "\t" name "\t" schemes}' "$catalogue/catalogue.json" >"$work/applications"
launchers=$(find "$VELOMIRA_WINEPREFIX/drive_c/users" -type d -path '*/Tessarine/Shared Applications')
shortcuts=$(find "$VELOMIRA_WINEPREFIX/drive_c/users" -type d -name 'Tessarine Shared Applications')
nativeLaunchers=$(find "$work/native" -type d -path '*/Tessarine/Shared Applications')
names=$(cut -f2 "$work/applications" | sed 's/$/ (Mac)/' | sort)
expect launchers "$names" "$(cd "$launchers" && ls | sed 's/\.exe$//' | sort)"
expect shortcuts "$names" "$(cd "$shortcuts" && ls | sed 's/\.lnk$//' | sort)"

# The numbers of each resource: type, name, language and size. The template's own one is not the module's.
listed() {
  sed -E 's/--type=([0-9]+) --name=([0-9]+) --language=([0-9]+) .*size=([0-9]+)\]/\1 \2 \3 \4/; /^10 1 0 /d'
}
peresListed() {
  local -A types=([RT_ICON]=3 [RT_RCDATA]=10 [RT_GROUP_ICON]=14 [RT_VERSION]=16)
  while read -r type name language size _; do
    [[ $type != RT_* ]] || echo "${types[$type]-$type} $((16#$name)) $((16#$language)) ${size#(}"
  done
}
extract() { # FILE FOLDER: the data of each resource, in files named by type, name and language
  mkdir "$2" && wrestool -x --raw -o "$2" "$1"
  rm -f "$2"/*_10_1_0
}
checksum() { gzip -c | tail -c 8 | od -An -tx4 -N4 | tr -d ' '; }
text() { iconv -f UTF-16LE -t UTF-8 | tr -d '\0'; }

while IFS=$'\t' read -r bundle name schemes; do
  file="$launchers/$name (Mac).exe" link="$shortcuts/$name (Mac).lnk"
  other="$nativeLaunchers/$name (Mac).exe" data="$work/$name" otherData="$work/$name natively"
  readpe -H "$file" 2>/dev/null | grep -q IMAGE_FILE_MACHINE_AMD64 || fail "$name: readpe finds no program"
  list=$(wrestool -l "$file" | listed)
  expect "$name: resources by peres" "$list" "$(peres -l "$file" 2>/dev/null | peresListed)"
  expect "$name: resources natively" "$list" "$(wrestool -l "$other" | listed)"
  extract "$file" "$data" && extract "$other" "$otherData"
  diff -rq "$data" "$otherData" >&2 || fail "$name: the native build writes other resources"

  expect "$name: bundle identifier" "$bundle" "$(text <"$data/$name (Mac).exe_10_260_0")"
  expect "$name: name" "$name" "$(text <"$data/$name (Mac).exe_10_259_0")"
  expect "$name: version" "$name (Mac)|1.0.0.0. 32 1|1.0.0.0|Tessarine Software International, Inc.|Tessarine Tools \
Center|Tessarine Shared Application|Tessarine Shared Application" "$(shown version "$name (Mac).exe" | tr '\t' '|')"
  expect "$name: product version by peres" 1.0.0.0 "$(peres -v "$file" 2>/dev/null | sed -n 's/^Product Version: *//p')"

  # The shell shows the pixels that the file holds; its images and those of the group have one order.
  images=$(grep '^3 ' <<<"$list" | cut -d' ' -f2)
  sizes=$(wrestool -x --type=14 --name=448 "$file" | icotool -l - | sed -E 's/.*--width=([0-9]+) .*bit-depth=32.*/\1/')
  expect "$name: images in the group" "$(wc -l <<<"$images")" "$(wc -l <<<"$sizes")"
  seen=$(shown icons "$name (Mac).exe")
  expect "$name: icon groups" 1 "${seen%%$'\t'*}"
  while read -r image size; do
    pixels=$(tail -c +41 "$data/$name (Mac).exe_3_${image}_1024" | head -c $((size * size * 4)) | checksum)
    [[ "${seen#*$'\t'} " == *"${size}x$size:$pixels "* ]] || fail "$name: $size is shown otherwise: $seen"
  done < <(paste -d' ' <(echo "$images") <(echo "$sizes"))

  # Wine keeps a link's target in the ANSI code page alone. What that cannot hold does not start.
  target="C:\\${file#*/drive_c/}" && target=$(tr / '\\' <<<"$target")
  ansi=$(iconv -f UTF-8 -t CP1252//TRANSLIT <<<"$target" | iconv -f CP1252 -t UTF-8)
  fields=$(lnkinfo "$link" | sed -n 's/^\t\(Local path\|Description\|Working directory\|Command line.*\|Icon location\)\t*: //p')
  expect "$name: link by lnkinfo" "$ansi"$'\nTessarine Shared Application shortcut' "$fields"
  expect "$name: link by the shell" "$ansi|Tessarine Shared Application shortcut|0" \
    "$(shown link "$name (Mac).lnk" | tr '\t' '|')"
  [[ $target == "$ansi" ]] && printf '%s\t%s\topen\t\n' "$bundle" "$name" >>"$work/expected"
  [[ $target == "$ansi" ]] || printf 'refused\t%s (Mac).lnk\t193\n' "$name" >>"$work/refused"
  printf '%s\t%s\topen\t%s\n' "$bundle" "$name" 'C:\Mes études\a & b %1.pgn' >>"$work/expected"
  [[ $schemes == 0 ]] || printf '%s\t%s\turl\t%s\n' "$bundle" "$name" 'x-test:open?q=a+b&x=%20%1' >>"$work/expected"
done <"$work/applications"

# Every start is reported by the launcher itself. Those of the links may still be under way at the end.
report="$VELOMIRA_WINEPREFIX/drive_c/stub-report.txt"
rm -f "$report"
started=$(VELOMIRA_STUB_REPORT='C:\stub-report.txt' wine "$bin/shell_view.exe" start 'C:\Mes études\a & b %1.pgn' \
  'x-test:open?q=a+b&x=%20%1' | tr -d '\r') || fail "shell_view cannot start the launchers"
expect "links that do not start" "$(cat "$work/refused")" "$started"
for ((i = 0; i < 100; ++i)); do
  [[ $(wc -l <"$report") -lt $(wc -l <"$work/expected") ]] || break
  sleep 0.1
done
diff <(sort "$work/expected") <(sort "$report") >&2 || fail "launchers were not started as expected (<), but so (>)"
rm -f "$report"
exit $((failures != 0))
