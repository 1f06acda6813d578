#!/bin/bash
# Runs a Windows program under Wine: wine_env.sh PROGRAM [ARGUMENT...]. The prefix is the absolute folder that
# VELOMIRA_WINEPREFIX names, made on first use. The Wine session outlives the program by a minute, so that the
# next start is quick; its server must not hold the caller's pipes, or whoever reads them waits that minute.
# VELOMIRA_WINE_ROOT names the root of a Debian for Arm: an emulator then runs the Wine in it.
set -euo pipefail

: "${VELOMIRA_WINEPREFIX:?must name the folder of the Wine prefix}"
export WINEPREFIX=$VELOMIRA_WINEPREFIX
export WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES="mscoree=;mshtml=;winemenubuilder.exe="
wine=/usr/lib/wine/wine64 server=/usr/lib/wine/wineserver64 emulator=()
if [[ -n ${VELOMIRA_WINE_ROOT:-} ]]; then
  export WINESERVER=$server WINELOADER=$wine
  emulator=(proot -q "qemu-aarch64 -E LD_PRELOAD=/usr/lib/ptrace.so" -r "$VELOMIRA_WINE_ROOT" -w "$PWD")
  for folder in /proc /dev /tmp "$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")" "$(dirname "$WINEPREFIX")"; do
    emulator+=(-b "$folder")
  done
fi
for tool in "${emulator[0]:-$wine}" "${VELOMIRA_WINE_ROOT:-}$wine" "${VELOMIRA_WINE_ROOT:-}$server"; do
  if ! command -v "$tool" >/dev/null; then
    echo "wine_env.sh: $tool is not installed" >&2
    exit 127
  fi
done
wine() { "${emulator[@]}" "$wine" "$@"; }
wineserver() { "${emulator[@]}" "$server" "$@"; }

wait_until() { # COMMAND...: succeeds, or five minutes have gone
  for ((i = 0; i < 3000; ++i)); do
    ! "$@" || return 0
    sleep 0.1
  done
  return 1
}

make_prefix() {
  # The services of the session that made a prefix cannot load drivers, so that session is ended.
  rm -rf "$WINEPREFIX" && wine wineboot -i && { wineserver -k || true; } && wineserver -w && touch "$WINEPREFIX/complete"
}

# A server that finds another one ends at once; in an emulator the first one may not find its folder.
serve() {
  ! wineserver -k0 || return 0
  setsid "${emulator[@]}" "$server" -f -p60 &
  sleep 1
  return 1
}

# The first program brings up the services. An emulator lasts as long as any program that came from one that it runs, so both
# the server and the first program are left to themselves.
start_session() {
  local up=$WINEPREFIX/drive_c/session-is-up
  [[ -e $WINEPREFIX/complete ]] || make_prefix || return
  ! wineserver -k0 || return 0
  rm -f "$up"
  wait_until serve || return
  setsid "${emulator[@]}" "$wine" cmd /c 'echo >C:\session-is-up' &
  wait_until test -e "$up"
}

mkdir -p "$(dirname "$WINEPREFIX")"
(
  flock 9
  start_session </dev/null >/dev/null 2>"$WINEPREFIX.log" 9>&-
) 9>"$WINEPREFIX.lock" || {
  echo "wine_env.sh: the Wine session does not start:" >&2
  cat "$WINEPREFIX.log" >&2
  exit 126
}
# A program that is to meet an older Windows runs under a name of its own, since Wine keeps the version by name.
if [[ -n ${VELOMIRA_WINDOWS_VERSION:-} ]]; then
  declare -A names=([6.0]=vista [6.1]=win7 [6.3]=win81 [10.0]=win10)
  program=${1%.exe}-$VELOMIRA_WINDOWS_VERSION.exe
  cp -u "$1" "$program"
  wine reg add "HKCU\\Software\\Wine\\AppDefaults\\$(basename "$program")" /v Version /f \
    /d "${names[$VELOMIRA_WINDOWS_VERSION]}" >/dev/null
  shift
  exec "${emulator[@]}" "$wine" "$program" "$@"
fi
exec "${emulator[@]}" "$wine" "$@"
