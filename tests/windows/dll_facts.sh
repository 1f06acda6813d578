#!/bin/bash
# What the module's file and its symbols say of themselves, read by binutils, icoutils and LLVM's readers:
# dll_facts.sh x64|x86|arm64 DLL VERSION SOURCE. The symbols lie beside the DLL. Prints each fact that is not as it must be.
set -u
architecture=$1 dll=$2 version=$3 source=$4
pdb=${dll%.dll}.pdb
declare -A machines=([x64]=IMAGE_FILE_MACHINE_AMD64 [x86]=IMAGE_FILE_MACHINE_I386 [arm64]=IMAGE_FILE_MACHINE_ARM64)
failures=0

fail() { echo "dll_facts.sh: $*" >&2; failures=1; }
for reader in llvm-readobj llvm-objdump llvm-pdbutil wrestool strings; do
  command -v "$reader" >/dev/null || { fail "the reader $reader is not installed"; exit 1; }
done
for file in "$dll" "$pdb"; do
  [[ -s $file ]] || { fail "$file is missing: build it first (presets windows-*)"; exit 1; }
done
expect() { [[ $2 == "$3" ]] || fail "$1: expected \"$2\", found \"$3\""; } # WHAT EXPECTED FOUND
line() { tr '\n' ' ' | sed 's/ *$//'; }

headers=$(llvm-readobj --file-headers --coff-exports --coff-imports --coff-basereloc --coff-debug-directory "$dll")
field() { sed -n "s/^ *$1: *//p" <<<"$headers" | head -n 1; }

expect machine "${machines[$architecture]}" "$(field Machine | cut -d' ' -f1)"
exports=$(sed -n '/^Export {/,/^}/s/^  Name: *//p' <<<"$headers" | grep .)
expect exports "NotifyTool StartTool StopTool" "$(sort <<<"$exports" | line)"
# Part of every Windows since 6.1.
imports=$(sed -n '/^Import {/,/^}/s/^  Name: *\(..*\)/\1/p' <<<"$headers")
expect imports "${imports_of:=advapi32.dll kernel32.dll msvcrt.dll ole32.dll shell32.dll shlwapi.dll user32.dll}" \
  "$(tr A-Z a-z <<<"$imports" | sort -u | line)"
subsystem=$(field MajorSubsystemVersion).$(field MinorSubsystemVersion)
[[ $(printf '%s\n' "$subsystem" 6.1 | sort -V | tail -n 1) == 6.1 ]] || fail "made for Windows $subsystem and later"

for flag in DYNAMIC_BASE NX_COMPAT HIGH_ENTROPY_VA; do
  [[ $architecture$flag == x86HIGH* ]] || grep -q "_DLL_CHARACTERISTICS_$flag" <<<"$headers" || fail "without $flag"
done
# An image can lie anywhere only if it says what is to be changed for that.
grep -q RELOCS_STRIPPED <<<"$headers" && fail "relocations are stripped"
grep -q 'Type: \(DIR64\|HIGHLOW\)' <<<"$headers" || fail "no base relocations"
if [[ $architecture != x86 ]]; then
  (( $(field ImageBase) > 0xFFFFFFFF )) || fail "image base $(field ImageBase) is below 4 GB"
fi

texts=$(wrestool -x --raw --type=16 --name=1 "$dll" | strings -el | line)
for text in "FileDescription Velomira shared applications module" "FileVersion $version" \
  "OriginalFilename velomira.dll" "ProductName Velomira" "ProductVersion $version"; do
  [[ $texts == *"$text"* ]] || fail "version resource without \"$text\": $texts"
done

expect "symbols left in the DLL" 0 "$(field SymbolCount)"
llvm-objdump -h "$dll" | grep -q '\.debug_' && fail "the DLL holds debug sections"
expect "time of the build" "1970-01-01 00:00:00 (0x0)" "$(field TimeDateStamp)"
expect "symbol file" velomira.pdb "$(field PDBFileName)"
guid() { tr -cd '0-9A-F' <<<"$1"; }
# The same bytes, of which a GUID's first three numbers are written the other way round.
named=$(guid "$(field PDBGUID)")
own=$(guid "$(llvm-pdbutil dump -summary "$pdb" | sed -n 's/^ *GUID: *//p')")
expect "symbols of this DLL" "$named" \
  "$(sed -E 's/^(..)(..)(..)(..)(..)(..)(..)(..)/\4\3\2\1\6\5\8\7/' <<<"$own")"

# One function of each subsystem, with its file and its first line, which has the name or follows the one that has it.
symbols=$(llvm-pdbutil dump -symbols "$pdb") lines=$(llvm-pdbutil dump -l "$pdb")
for function in frame/event_loop.cpp:RunEventLoop channel/mainfo.cpp:GetMacAppList sync/withdrawal.cpp:WithdrawHostApplications \
  launcher/mainfo.cpp:CreateLauncher registry/registry_registration.cpp:RegisterHostApplication log/log.cpp:WriteLog \
  frame/exports.cpp:StartTool; do
  name=${function#*:} file=${function%%:*}
  address=$(grep -A1 -F "\`$name\`" <<<"$symbols" | sed -n 's/.*addr = 0001:\([0-9]*\).*/\1/p' | head -n 1)
  [[ -n $address ]] || { fail "no symbol $name"; continue; }
  block=$(printf '  0001:%08X-' "$((10#$address))")
  found=$(grep -B1 -A1 -F -- "$block" <<<"$lines")
  [[ $(head -n 1 <<<"$found") == "velomira\\src\\${file//\//\\} "* ]] || fail "$name lies in $(head -n 1 <<<"$found"), not in $file"
  number=$(sed -n '3s/^ *\([0-9]*\) .*/\1/p' <<<"$found")
  [[ -n $number ]] && sed -n "$((number - 1)),${number}p" "$source/src/$file" | grep -q "$name" ||
    fail "$name does not begin on line ${number:-none} of $file"
done
for folder in "$source" ${VELOMIRA_ZIG:-}; do
  strings "$dll" "$pdb" | grep -m 3 -F "$folder" && fail "$folder is named in it"
done
exit "$failures"
