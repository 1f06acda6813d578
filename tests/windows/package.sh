#!/bin/bash
# Makes and unpacks the package of a build, and looks at what is in it: package.sh BUILD_FOLDER ARCHITECTURE
# VERSION [COMMAND...]. The command, with the unpacked module's path behind it, is to load the module.
set -euo pipefail
build=$1 architecture=$2 version=$3
shift 3

fail() { echo "package.sh: $*" >&2; exit 1; }
[[ -e $build/CPackConfig.cmake ]] || fail "$build is not configured: build its preset first"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cpack --config "$build/CPackConfig.cmake" -B "$work" >"$work/log" 2>&1 || { cat "$work/log" >&2; fail "cpack failed"; }

name=velomira-$version-windows-$architecture
(cd "$work" && cmake -E tar xf "$name.zip")
content=$(cd "$work/$name" && find . -type f | LC_ALL=C sort | tr '\n' ' ')
expected="./README.md ./docs/guest.md ./licenses/gcc-runtime.txt ./licenses/gpl-3.txt \
./licenses/mingw-w64-and-winpthreads.txt ./velomira.dll ./velomira.pdb "
[[ $content == "$expected" ]] || fail "unexpected content: $content"
for file in velomira.dll velomira.pdb; do
  cmp "$work/$name/$file" "$build/bin/$file" || fail "$file is not the one of the build"
done
for phrase in gcc-runtime.txt:"GCC RUNTIME LIBRARY EXCEPTION" gpl-3.txt:"GNU GENERAL PUBLIC LICENSE" \
  mingw-w64-and-winpthreads.txt:"mingw-w64 project" mingw-w64-and-winpthreads.txt:winpthreads; do
  grep -q "${phrase#*:}" "$work/$name/licenses/${phrase%%:*}" || fail "${phrase%%:*} does not name ${phrase#*:}"
done
[[ $# == 0 ]] || "$@" "$work/$name/velomira.dll" </dev/null
