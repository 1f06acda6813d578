#!/bin/bash
# Clang and LLD for Windows on Arm: zig.sh ZIG_FOLDER cc|c++ ARGUMENT... Zig knows how to link its own libraries, but not how to
# leave out the time, to name folders of the build and to take resources; so it links once, tells how it calls LLD, and LLD is
# called again with the rest.
set -euo pipefail
zig=$1 language=$2
shift 2
export ZIG_GLOBAL_CACHE_DIR=$zig/cache ZIG_LOCAL_CACHE_DIR=$zig/cache
compiler=("$zig/zig" "$language" -target aarch64-windows-gnu)
for argument in "$@"; do
  case $argument in -c | -E | -v | --version) exec "${compiler[@]}" "$@" ;; esac
done

inputs=() more=(-timestamp:0 -opt:ref -opt:icf)
while (($# > 0)); do
  case $1 in
    *.res) more+=("$1") ;;
    -Wl,--out-implib,*) more+=("-implib:${1##*,}") ;;
    -Wl,-Xlink=*) more+=("${1#*=}") ;;
    -Wl,--pdb=*) more+=("-pdb:${1#*=}") ;;
    -Wl,*) ;;
    -o)
      work=$2.zig  # symbol files keep the command line, so the name must not change
      inputs+=(-o "$work/${2##*/}") more+=("-out:$2")
      shift
      ;;
    *) inputs+=("$1") ;;
  esac
  shift
done
mkdir -p "$work"
trap 'rm -rf "$work"' EXIT
link=$(ZIG_VERBOSE_LINK=1 "${compiler[@]}" "${inputs[@]}" 2>&1) || { printf '%s\n' "$link" >&2; exit 1; }
command=$(grep -m 1 '^lld-link ' <<<"$link") || { printf '%s\n' "$link" >&2; exit 1; }
read -ra command <<<"$command"
lld-link-16 "${command[@]:1}" "${more[@]}"
