#!/bin/bash
# What the module's file says of itself, read by binutils and icoutils: dll_facts.sh x64|x86 DLL VERSION. Prints
# each fact that is not as it must be.
set -u
architecture=$1 dll=$2 version=$3
declare -A formats=([x64]=pei-x86-64 [x86]=pei-i386)
failures=0

fail() { echo "dll_facts.sh: $*" >&2; failures=1; }
for reader in objdump nm wrestool strings gzip; do
  command -v "$reader" >/dev/null || { fail "the reader $reader is not installed"; exit 1; }
done
for file in "$dll" "$dll.debug"; do
  [[ -s $file ]] || { fail "$file is missing: build it first (presets windows-x64 and windows-x86)"; exit 1; }
done
expect() { [[ $2 == "$3" ]] || fail "$1: expected \"$2\", found \"$3\""; } # WHAT EXPECTED FOUND
line() { tr '\n' ' ' | sed 's/ *$//'; }

# The list of relocations is long and of no use here.
headers=$(objdump -p "$dll" | sed '/^PE File Base Relocations/,$d')
field() { sed -n "s/^$1[[:space:]]*//p" <<<"$headers" | head -n 1; }

expect format "${formats[$architecture]}" "$(sed -n 's/.*file format //p' <<<"$headers")"
expect exports "NotifyTool StartTool StopTool" "$(sed -n 's/^\t\[ *[0-9]*\] \([^+]*\)$/\1/p' <<<"$headers" | sort | line)"
# Part of every Windows since 6.1.
expect imports "advapi32.dll kernel32.dll msvcrt.dll ole32.dll shell32.dll shlwapi.dll user32.dll" \
  "$(sed -n 's/^\tDLL Name: //p' <<<"$headers" | tr A-Z a-z | sort -u | line)"
subsystem=$(field MajorSubsystemVersion).$(field MinorSubsystemVersion)
[[ $(printf '%s\n' "$subsystem" 6.1 | sort -V | tail -n 1) == 6.1 ]] || fail "made for Windows $subsystem and later"

flags="DYNAMIC_BASE NX_COMPAT"
[[ $architecture == x86 ]] || flags="HIGH_ENTROPY_VA $flags"
expect flags "$flags" "$(sed -n '/^DllCharacteristics/,/^Size/s/^\t\t*\([A-Z_]*\)$/\1/p' <<<"$headers" | line)"
# An image can lie anywhere only if it says what is to be changed for that.
grep -q 'relocations stripped' <<<"$headers" && fail "relocations are stripped"
grep -q '^Entry 5 0* 0* ' <<<"$headers" && fail "no base relocations"
if [[ $architecture == x64 ]]; then
  (( 16#$(field ImageBase) > 0xFFFFFFFF )) || fail "image base $(field ImageBase) is below 4 GB"
fi

texts=$(wrestool -x --raw --type=16 --name=1 "$dll" | strings -el | line)
for text in "FileDescription Velomira shared applications module" "FileVersion $version" \
  "OriginalFilename velomira.dll" "ProductName Velomira" "ProductVersion $version"; do
  [[ $texts == *"$text"* ]] || fail "version resource without \"$text\": $texts"
done

expect "symbols left in the DLL" "no symbols" "$(objdump -t "$dll" | sed -n '/^SYMBOL TABLE/,$p' | sed 1d | line)"
objdump -h "$dll" | grep -q '\.debug_' && fail "the DLL holds debug sections"
expect "symbols kept" "NotifyTool StartTool StopTool" "$(nm "$dll.debug" | sed -En 's/.* T _?([A-Za-z]*Tool)$/\1/p' | sort | line)"
objdump -h "$dll.debug" | grep -q '\.debug_info' || fail "$dll.debug holds no debug information"
# The last eight bytes of a gzip file begin with the checksum by which debuggers know the file. objdump leaves its
# leading zeros out.
checksum=$(printf %x "0x$(gzip -c "$dll.debug" | tail -c 8 | od -An -tx4 -N4 | tr -d ' ')")
link=$(objdump -Wk "$dll" | sed -n 's/^  Separate debug info file: *//p; s/^  CRC value: *0x//p' | line)
expect "symbol file" "velomira.dll.debug $checksum" "$link"
exit "$failures"
