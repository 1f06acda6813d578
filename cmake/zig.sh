#!/bin/bash
# Clang and LLD for Windows on Arm: zig.sh ZIG_FOLDER cc|c++ ARGUMENT... Zig knows how to link its own libraries, but not how to
# leave out the time, to name folders of the build and to take resources; so it links once, tells how it calls LLD, and LLD is
# called again with the rest.
set -euo pipefail
zig=$1 language=$2
shift 2
export ZIG_GLOBAL_CACHE_DIR=$zig/cache ZIG_LOCAL_CACHE_DIR=$zig/cache
compiler=("$zig/zig" "$language" -target aarch64-windows-gnu)
# Without optimisation Zig would guard the stack, which needs a library that it does not link with optimisation.
for argument in "$@"; do
  case $argument in -c | -E | -v | --version) exec "${compiler[@]}" "-ffile-prefix-map=$zig=zig" -fno-stack-protector "$@" ;; esac
done

# Options of the compiler do not matter any more, and with other ones Zig would build its libraries anew.
inputs=(-O2 -s) files=() more=(-timestamp:0 -opt:ref -opt:icf)
while (($# > 0)); do
  case $1 in
    *.res) more+=("$1") ;;
    -Wl,--out-implib,*) more+=("-implib:${1##*,}") ;;
    -Wl,-Xlink=*) more+=("${1#*=}") ;;
    -Wl,--pdb=*) more+=(-debug "-pdb:${1#*=}") ;;
    -Wl,--subsystem,*) more+=("-subsystem:${1##*,}") ;;
    -Wl,-e,*) more+=("-entry:${1##*,}") ;;
    -Wl,*) ;;
    -o)
      work=$2.zig  # symbol files keep the command line, so the name must not change
      inputs+=(-o "$work/${2##*/}") more+=("-out:$2")
      shift
      ;;
    -O* | -g* | -s) ;;
    -nostdlib) libraries=none ;;
    *.obj | *.a) inputs+=("$1") files+=("$1") ;;
    *) inputs+=("$1") ;;
  esac
  shift
done
if [[ -n ${libraries:-} ]]; then exec lld-link-16 -nologo -dll -noimplib -nodefaultlib "${files[@]}" "${more[@]}"; fi
mkdir -p "$work"
trap 'rm -rf "$work"' EXIT
link=$(ZIG_VERBOSE_LINK=1 "${compiler[@]}" "${inputs[@]}" 2>&1) || { printf '%s\n' "$link" >&2; exit 1; }
command=$(grep -m 1 '^lld-link ' <<<"$link") || { printf '%s\n' "$link" >&2; exit 1; }
read -ra command <<<"$command"
# Symbol files keep the names of what was linked, so no folder of Zig's cache may be in them.
for i in "${!command[@]}"; do
  file=${command[$i]}
  [[ $file == "$zig"/* ]] || continue
  command[$i]=$work/${file##*/}
  mapfile -t members < <([[ $file != *.lib ]] || llvm-ar t "$file")
  if [[ ${members[*]} == /* ]]; then
    llvm-ar qcs "${command[$i]}" "${members[@]}"
  else
    ln -s "$file" "${command[$i]}"
  fi
done
lld-link-16 "${command[@]:1}" "${more[@]}"
