#!/bin/bash
# Opens every package as those do who get it: package.sh PACKAGES VERSION SOURCE. Sums, contents, libraries, symbols and bills
# are read by programs that others wrote; a program outside the tree is built against each unpacked package and, for x64, run
# under Wine in the prefix that VELOMIRA_WINEPREFIX names. VELOMIRA_ZIG names the compiler for arm64.
set -euo pipefail
packages=$(realpath "$1") version=$2 source=$(realpath "$3")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "package.sh: $*" >&2; exit 1; }
quietly() { "$@" >"$work/log" 2>&1 || { cat "$work/log" >&2; fail "$* failed"; }; }

cd "$packages"
quietly sha256sum -c SHA256SUMS
[[ $(wc -l <SHA256SUMS) == $(find . -name 'velomira-*' | wc -l) ]] || fail "SHA256SUMS does not name every package"
cd "$work"
for archive in "$packages"/*.zip; do quietly unzip -q "$archive"; done
quietly tar xzf "$packages/velomira-$version-tools-linux-x64.tar.gz"

cat >CMakeLists.txt <<'CMAKE'
cmake_minimum_required(VERSION 3.20)
project(consumer LANGUAGES C CXX)
find_package(velomira 1.0 REQUIRED)
add_compile_options(-Wall -Wextra -Werror)
add_executable(example_c ${EXAMPLE})
target_link_libraries(example_c PRIVATE velomira::velomira)
set_target_properties(example_c PROPERTIES C_STANDARD 17 C_EXTENSIONS OFF)
configure_file(${EXAMPLE} example.cpp COPYONLY)
add_executable(example_cpp ${CMAKE_BINARY_DIR}/example.cpp)
target_link_libraries(example_cpp PRIVATE velomira::velomira)
target_compile_features(example_cpp PRIVATE cxx_std_20)
add_custom_command(TARGET example_c POST_BUILD
  COMMAND ${CMAKE_COMMAND} -E copy $<TARGET_FILE:velomira::velomira> $<TARGET_FILE_DIR:example_c>)
CMAKE
declare -A compilers=([x64]=x86_64-w64-mingw32-gcc-posix,x86_64-w64-mingw32-g++-posix
  [x86]=i686-w64-mingw32-gcc-posix,i686-w64-mingw32-g++-posix
  [arm64]="$source/cmake/zig.sh;$VELOMIRA_ZIG;cc,$source/cmake/zig.sh;$VELOMIRA_ZIG;c++")
for architecture in x64 x86 arm64; do
  folder=$work/velomira-$version-windows-$architecture
  quietly bash "$source/tests/windows/dll_facts.sh" "$architecture" "$folder/bin/velomira.dll" "$version" "$source"
  for symbol in StartTool StopTool NotifyTool; do
    llvm-readobj --coff-exports "$folder/bin/velomira.dll" | grep -q "Name: $symbol$" || fail "$architecture: no $symbol"
    llvm-nm "$folder/lib/velomira.lib" 2>/dev/null | grep -Eq " T _?$symbol$" || fail "$architecture: $symbol is not in the library"
    grep -q "$symbol" "$folder/include/velomira.h" || fail "$symbol is not in the header"
  done
  # Every licence that the bill names has its text, and the bill is of this very module.
  python3 - "$folder" <<'PYTHON' || fail "$architecture: the bill of materials is wrong"
import hashlib, json, os, sys
bill = json.load(open(f"{sys.argv[1]}/sbom.spdx.json"))
own, *others = bill["packages"]
assert bill["spdxVersion"] == "SPDX-2.3"
assert own["checksums"][0]["checksumValue"] == hashlib.sha256(open(f"{sys.argv[1]}/bin/velomira.dll", "rb").read()).hexdigest()
assert len(others) == len(os.listdir(f"{sys.argv[1]}/licenses")) and all(p["licenseDeclared"] != "NOASSERTION" for p in others)
PYTHON
  quietly cmake -G Ninja -S . -B "consumer-$architecture" -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_PREFIX_PATH="$folder" \
    -DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=BOTH -DEXAMPLE="$folder/example/example.c" \
    -DCMAKE_C_COMPILER="${compilers[$architecture]%%,*}" -DCMAKE_CXX_COMPILER="${compilers[$architecture]##*,}"
  quietly cmake --build "consumer-$architecture"
  # As MSVC's linker would read the library.
  underscore=
  [[ $architecture != x86 ]] || underscore=_
  quietly lld-link-16 -dll -noentry -machine:"$architecture" -out:"linked-$architecture.dll" "$folder/lib/velomira.lib" \
    -include:"${underscore}StartTool" -include:"${underscore}StopTool" -include:"${underscore}NotifyTool"
  for program in "consumer-$architecture/example_cpp.exe" "linked-$architecture.dll"; do
    llvm-readobj --coff-imports "$program" | grep -q 'Name: velomira.dll' || fail "$program does not import the module"
  done
done

# The host tool of the package brings the driver up; the program then finds its device.
wine() { "$source/cmake/wine_env.sh" "$@"; }
tools=$work/velomira-$version-tools-windows-x64
share() { quietly wine "$tools/velomira-host.exe" shell --catalogue "$tools/catalogue"; }
share <<<on
quietly wine "$tools/shell_view.exe" show
share <<<$'on\noff'
wine "$work/consumer-x64/example_c.exe" </dev/null >"$work/said" || fail "the program fails: $(cat "$work/said")"
grep -q 'Sharing follows the host' "$work/said" || fail "the program says: $(cat "$work/said")"
quietly wine "$tools/velomira_deaths.exe" "$tools/catalogue" 6
tools=$work/velomira-$version-tools-linux-x64
quietly "$tools/velomira-host" run --catalogue "$tools/catalogue" --guest "$work/guest"
quietly "$tools/velomira-trials" faults --every 4000 --jobs 1 --catalogue "$tools/catalogue"
for tools in "$tools" "$work/velomira-$version-tools-windows-x64"; do
  llvm-readobj --file-headers "$tools/vel_micro_app.exe" | grep -q IMAGE_FILE_MACHINE_AMD64 || fail "the stub is no program"
done
echo "every package opens, and what is in it works"
