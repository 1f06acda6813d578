#!/bin/bash
# The DLL against the straight line under Wine: windows.sh BUILD [TABLE...]. Prints the tables requests, times and size for
# docs/performance.md. Everything happens in a prefix of its own, which is gone afterwards.
set -euo pipefail
build=$(realpath "$1")
bench=$build/bin/velomira_bench.exe wine_env=$(dirname "$(realpath "$0")")/../cmake/wine_env.sh
work=$(mktemp -d)
export VELOMIRA_WINEPREFIX=$work/wine WINEPREFIX=$work/wine
PATH=$PATH:/usr/lib/wine
trap 'wineserver -k || true; wineserver -w || true; rm -rf "$work"' EXIT

# What a program says matters only when it fails.
quietly() { "$@" >"$work/log" 2>&1 || { echo "windows.sh: $* failed" >&2; cat "$work/log" >&2; return 1; }; }

# Starts the session and says its server's process, which works in a folder named after the prefix' device and inode.
server() {
  quietly "$wine_env" cmd /c exit
  local folder pid
  printf -v folder 'server-%x-%x' $(stat -c '%d %i' "$WINEPREFIX")
  for pid in $(pgrep wineserver); do
    [[ $(readlink "/proc/$pid/cwd") == */"$folder" ]] && echo "$pid" && return
  done
  echo "windows.sh: the Wine server is not found" >&2
  return 1
}

print_times() {
  echo '| work, time | DLL, ms | straight line, ms | driver, ms | ratio without driver |'
  echo '|---|---|---|---|---|'
  "$wine_env" "$bench" 50 20 "$(server)"
  "$wine_env" "$bench" 200 8 "$(server)"
}

# The requests that Wine's server answers to the thread that works, from the server's own trace; each run has a server
# of its own.
print_requests() {
  local count
  echo '| work | DLL, requests | straight line, requests | ratio |'
  echo '|---|---|---|---|'
  for count in 50 200; do
    wineserver -k || true
    wineserver -w
    export WINEDEBUG=+server
    quietly "$wine_env" "$bench" "$count" 0 "$(server)" $([ $count = 200 ] && echo sleep)
    unset WINEDEBUG
    awk -v count=$count '
      /create_event\(.*velomira-bench / {
        phase = $0; sub(/.*velomira-bench /, "", phase); sub(/".*/, "", phase)
        next
      }
      phase != "" && phase != "end" && /^[0-9a-f]+: [a-z_0-9]+\(/ && !/\) = / {
        split($0, part, ":"); n = ++requests[phase, part[1]]
        if (n > most[phase]) { most[phase] = n; busiest[phase] = part[1] }
      }
      END {
        split("first unchanged withdrawal", works, " ")
        for (i = 1; i <= 3; ++i) {
          dll = most["dll " works[i]]; limit = most["straight " works[i]]
          printf "| %d applications, %s | %d | %d | %.4f |\n", count, works[i], dll, limit, dll / limit
        }
        if (count == 200) printf "| a sleeping worker, 60 s | %d | | |\n", requests["sleep", busiest["dll first"]]
      }' "$WINEPREFIX.log"
  done
}

# The DLL's bytes by where they come from: the linker's map names the object file of each part of a section.
print_size() {
  printf 'velomira.dll has %s bytes, of which\n\n| from | bytes |\n|---|---|\n' "$(stat -c %s "$build/bin/velomira.dll")"
  grep -v -e ':(\.bss' -e ':(\.debug' "$build/bench/velomira.map" |
    grep -oP '^[0-9a-f]{8} \K[0-9a-f]{8} .*[^ /]+(\.a|\.obj|\.o)(?=[(:])' |
    while read -r size _ from; do echo "$((16#$size)) ${from##*/}"; done |
    awk '{ from = $2 ~ /\.cpp\.obj$/ ? "the module" : $2; bytes[from] += $1 }
         END { for (from in bytes) print bytes[from], from }' | sort -rn |
    awk 'NR <= 4 { size = $1; sub(/^[0-9]+ /, ""); printf "| %s | %d |\n", $0, size }'
}

shift
[ $# -gt 0 ] || set -- requests times size
for table in "$@"; do
  "print_$table"
  echo
done
