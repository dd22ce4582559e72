#!/usr/bin/env bash
# Runs a command (normally the Windows lane's ctest) with one persistent
# wineserver and wine's background services already up, so each test
# process starts in a fraction of a second instead of waiting on wine's
# start-up; stops the server afterwards. Run it inside xvfb-run.
set -uo pipefail
export WINEPREFIX="${WINEPREFIX:-${QIMMISC_CACHE:-$HOME/.cache/qimmisc}/wine64}"
export WINEDEBUG="${WINEDEBUG:--all}"
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=}"
mkdir -p "$WINEPREFIX"
wineserver -k >/dev/null 2>&1 || true
wineserver -p >/dev/null 2>&1 || true
# The first start creates the prefix (about ten seconds on a fresh machine).
wine cmd /c exit </dev/null >/dev/null 2>&1 || true
# A crash must fail its test at once: without this, wine starts its debugger
# (winedbg), which waits for a user until the test's time limit.
for key in 'HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug' \
           'HKLM\Software\Wow6432Node\Microsoft\Windows NT\CurrentVersion\AeDebug'; do
  wine reg add "$key" /v Debugger /d "" /f </dev/null >/dev/null 2>&1 || true
  wine reg add "$key" /v Auto /d 0 /f </dev/null >/dev/null 2>&1 || true
done
trap 'wineserver -k >/dev/null 2>&1 || true' EXIT
"$@"
