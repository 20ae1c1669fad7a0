#!/usr/bin/env bash
# Runs a command against a private Xvfb server (and openbox when QUILLET_WM=1), then stops them,
# also when interrupted: background jobs of a script ignore Ctrl+C and would outlive it.
# Usage: with-xvfb.sh COMMAND [ARG...]
set -euo pipefail
xvfb=""
wm=""
stop() {
  [ -n "$wm" ] && kill "$wm" 2>/dev/null || true
  [ -n "$xvfb" ] && kill "$xvfb" 2>/dev/null || true
  wait 2>/dev/null || true
}
trap stop EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
fdfile=$(mktemp)
exec 3>"$fdfile"
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp -noreset >/dev/null 2>&1 &
xvfb=$!
exec 3>&-
for _ in $(seq 1 200); do
  [ -s "$fdfile" ] && break
  sleep 0.05
done
display=$(head -n1 "$fdfile")
rm -f "$fdfile"
if [ -z "$display" ]; then
  echo "with-xvfb.sh: Xvfb did not start" >&2
  exit 1
fi
export DISPLAY=":$display"
if [ "${QUILLET_WM:-0}" = 1 ]; then
  openbox --sm-disable >/dev/null 2>&1 &
  wm=$!
  # Windows mapped before the window manager runs are never managed (no focus, no activation).
  for _ in $(seq 1 200); do
    xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 'window id' && break
    sleep 0.05
  done
fi
status=0
"$@" || status=$?
exit "$status"
