#!/bin/bash
# Runs a Windows program under Wine: wine_env.sh PROGRAM [ARGUMENT...]. The prefix is the absolute folder that
# VELOMIRA_WINEPREFIX names, made on first use. The Wine session outlives the program by a minute, so that the
# next start is quick; its server must not hold the caller's pipes, or whoever reads them waits that minute.
set -euo pipefail

: "${VELOMIRA_WINEPREFIX:?must name the folder of the Wine prefix}"
export WINEPREFIX=$VELOMIRA_WINEPREFIX
export WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES="mscoree=;mshtml=;winemenubuilder.exe="
PATH=$PATH:/usr/lib/wine
for tool in wine64 wineserver; do
  if ! command -v "$tool" >/dev/null; then
    echo "wine_env.sh: $tool is not installed" >&2
    exit 127
  fi
done

make_prefix() {
  # The services of the session that made a prefix cannot load drivers, so that session is ended.
  rm -rf "$WINEPREFIX" && wine64 wineboot -i && wineserver -k && wineserver -w && touch "$WINEPREFIX/complete"
}

start_session() {
  [[ -e $WINEPREFIX/complete ]] || make_prefix || return
  # The server starts only where none runs; then the first program brings up the services.
  ! wineserver -p60 || wine64 cmd /c exit
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
  wine64 reg add "HKCU\\Software\\Wine\\AppDefaults\\$(basename "$program")" /v Version /f \
    /d "${names[$VELOMIRA_WINDOWS_VERSION]}" >/dev/null
  shift
  exec wine64 "$program" "$@"
fi
exec wine64 "$@"
