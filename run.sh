#!/usr/bin/env bash
# Installs what is missing, builds, seeds demo recordings, and serves them. See usage below.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
. scripts/common.sh

usage() {
  cat <<'TEXT'
usage: ./run.sh [--demo]

Without arguments: serves the demo recordings below var/ in the foreground until Ctrl-C.
  --demo   finds the demo recordings through the record index, plays each back over the network, compares what arrives
           with the files, and ends.

Exit status: 0 stopped when told to, or the demo went well; 1 something failed; 64 wrong arguments.
TEXT
}

demo=no
case "${1:-}" in
  "") ;;
  --demo) demo=yes ;;
  -h | --help) usage; exit 0 ;;
  *) printf 'run.sh: unknown argument %s\n' "$1" >&2; usage >&2; exit 64 ;;
esac

root=$PWD/var
bin=$PWD/build/product/bin

# Real street footage, 79 seconds: channel 1 as H.264, channel 2 as H.265, in files of 30 seconds.
seed_recordings() {
  [ -f "$root/recordings/.complete" ] && return
  say "seeding demo recordings"
  mkdir -p "$root/cache"
  rm -rf "$root/recordings"
  mkdir -p "$root/recordings"
  local film
  film=$(scripts/demo_footage.sh "$root/cache") || fail "the demo footage cannot be had; see above"
  local start="2026-03-01 08:00:00"
  "$bin/orbrec" import "$film" -o "$root/recordings" --codec h264 --host DEMO --channel 1 --start "$start" --split 30
  "$bin/orbrec" import "$film" -o "$root/recordings" --codec h265 --host DEMO --channel 2 --start "$start" --split 30
  touch "$root/recordings/.complete"
}

# What searches find. Done each time: what is entered already stays as it is.
seed_index() {
  "$bin/orbrec" reindex --scan "$root/recordings" --root "$1" >&2 || fail "the record index cannot be filled; see above"
}

seed_configuration() {
  local file
  mkdir -p "$root/etc/conf"
  for file in packaging/etc/conf/*.json; do
    [ -f "$root/etc/conf/${file##*/}" ] || cp "$file" "$root/etc/conf/"
  done
}

serve() {
  local first
  first=$(cd "$root/recordings" && printf '%s\n' *.rec | head -n 1)
  cat >&2 <<TEXT

Serving $root/recordings. In another terminal, try:
  build/product/bin/vodctl find --from 2026-03-01 --to 2026-03-01
  build/product/bin/vodctl timeline --date 2026-03-01
  build/product/bin/vodctl play 'recordings\\$first' -o play.mp4
  build/product/bin/vodctl play 'recordings\\$first' --seek-percent 50 -o half.rec
  build/product/bin/vodctl state
  build/product/bin/orbrec info var/recordings/$first
  build/product/bin/orbrec check --root var --scan var/recordings
Ctrl-C stops the service.

TEXT
  exec "$bin/vod_svr" --root "$root"
}

# ---- The demo: everything by itself, on a port and in folders of its own -------------------------------------------------

stop_service() {
  [ -n "${service:-}" ] || return 0
  kill "$service" 2>/dev/null || true
  wait "$service" 2>/dev/null || true
}

start_service() {
  unset ZETA_DB_SOCK # the demo's index is its own
  work=$(mktemp -d)
  trap 'stop_service; rm -rf "$work"' EXIT
  mkdir -p "$work/etc/conf"
  cp packaging/etc/conf/vod_svr.json "$work/etc/conf/"
  printf '{"port": 0}\n' >"$work/etc/conf/ms_config.json"
  seed_index "$work"
  printf '{"sleep_interval": 0, "access": {"roots": ["%s/recordings"]}}\n' "$root" >"$work/etc/conf/vod_config.json"
  "$bin/vod_svr" --root "$work" --json >"$work/ready" 2>"$work/log" &
  service=$!
  for _ in $(seq 100); do
    port=$(sed -n 's/.*"port":\([0-9]*\).*/\1/p' "$work/ready")
    [ -n "$port" ] && return
    kill -0 "$service" 2>/dev/null || break
    sleep 0.1
  done
  cat "$work/log" >&2
  fail "the service did not start"
}

frames_of() {
  ffprobe -v error -select_streams v:0 -count_frames -show_entries stream=nb_read_frames -of csv=p=0 "$1" | tr -d ', '
}

# $1: as a search showed it.
play_and_compare() {
  local found=$1 name file
  name=${found##*\\}
  file=$root/recordings/$name
  "$bin/vodctl" --server "127.0.0.1:$port" --quiet play "$found" --force -o "$work/play.rec"
  cmp "$file" "$work/play.rec" || fail "$name: what arrived differs from the file"
  "$bin/vodctl" --server "127.0.0.1:$port" --quiet play "$found" --force --format mp4 -o "$work/play.mp4"
  local expected arrived
  expected=$("$bin/orbrec" info "$file" --json | sed -n 's/^ *"frames": *\([0-9]*\).*/\1/p')
  arrived=$(frames_of "$work/play.mp4")
  [ "$expected" = "$arrived" ] || fail "$name: $expected frames recorded, $arrived decoded from the MP4"
  printf '  %s: %s bytes equal, %s frames decoded\n' "$name" "$(stat -c %s "$file")" "$arrived"
}

# The names that a search of one channel finds, one a line.
find_names() {
  "$bin/vodctl" --server "127.0.0.1:$port" --quiet --json find --host DEMO --channel "$1" --from 2026-03-01 --to 2026-03-01 |
    sed -n 's/^ *"file":"\(.*\)",$/\1/p' | sed 's/\\\\/\\/g'
}

run_demo() {
  start_service
  say "finding the recordings"
  "$bin/vodctl" --server "127.0.0.1:$port" find --from 2026-03-01 --to 2026-03-01
  "$bin/vodctl" --server "127.0.0.1:$port" timeline --date 2026-03-01
  say "playing back over the network what was found"
  local found names played=0 stored
  names=$(find_names 1 && find_names 2)
  while IFS= read -r found; do
    play_and_compare "$found"
    played=$((played + 1))
  done <<<"$names"
  stored=$(find "$root/recordings" -name '*.rec' | wc -l)
  [ "$played" = "$stored" ] || fail "$stored recordings are there, $played were found"
  "$bin/vodctl" --server "127.0.0.1:$port" links
  stop_service
  service=
  "$bin/orbrec" check --root "$work" --scan "$root/recordings" --md5 || fail "the index does not fit the files; see above"
  printf 'demo: %s recordings found, played back and equal\n' "$played"
}

install_packages "${PACKAGES_BUILD[@]}" "${PACKAGES_RUN[@]}"
build_preset product vod_svr vodctl orbrec
seed_configuration
seed_recordings
if [ "$demo" = yes ]; then
  run_demo
else
  seed_index "$root"
  serve
fi
