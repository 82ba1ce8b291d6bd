#!/bin/bash
# Runs every bench and prints one line for each figure, then how many missed what is wanted of them. About five minutes.
#
#   bench/run_all.sh [build folder]
#
# The build folder (build/release unless named) must hold a release build with the benches. Recordings of 2 GiB in all are
# made in a temporary folder and removed afterwards; VOD_BENCH_DATA names a folder that keeps them.
set -u
cd "$(dirname "$0")/.." || exit 1
bin=${1:-build/release}/bin
data=${VOD_BENCH_DATA:-$(mktemp -d "${TMPDIR:-/tmp}/vod_bench.XXXXXX")}
[ -n "${VOD_BENCH_DATA:-}" ] || trap 'rm -rf "$data"' EXIT
figures=$data/figures.txt
: >"$figures"

status=0
for bench in micro open index find stream pacing idle rounds; do
  if [ ! -x "$bin/${bench}_bench" ]; then
    echo "$bin/${bench}_bench is missing: cmake --preset release && cmake --build --preset release" >&2
    exit 1
  fi
  timeout 300 "$bin/${bench}_bench" --data "$data" | tee -a "$figures" || status=1
  [ "${PIPESTATUS[0]}" -eq 0 ] || status=1
done

printf '%d figures, %d of those wanted met, %d missed\n' "$(wc -l <"$figures")" "$(grep -c ': met$' "$figures")" \
  "$(grep -c ': MISSED$' "$figures")"
exit $status
