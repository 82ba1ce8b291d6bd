#!/usr/bin/env bash
# What scripts/build_cache.sh builds again and what it leaves alone, with recipes of a line each.
# build_cache_test.sh SOURCE-FOLDER
set -euo pipefail
cd "$1"
. scripts/common.sh
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cache=$work/cache prefix=$work/cache/prefix
. scripts/build_cache.sh

there_is=1 inputs="compiler 12"
source_version() { printf '%s\n' "$there_is"; }
build_inputs() { printf '%s\n' "$inputs"; }
unpack_source() { mkdir -p "$cache/sources/$1" && printf '%s\n' "$cache/sources/$1"; }

broken=0
# expect WHAT EXPECTED ACTUAL
expect() {
  [ "$2" = "$3" ] || { printf 'FAILED: %s: expected "%s", there is "%s"\n' "$1" "$2" "$3"; broken=1; }
}

runs() { cat "$work/runs" 2>/dev/null | tr '\n' ' '; }

# What a build did, each in a process of its own, as the script has it.
# attempt PACKAGE RECIPE [PACKAGE...]
attempt() {
  rm -f "$work/runs"
  (build "$@") >/dev/null 2>&1 && ended=well || ended=badly
}

one() { echo one >>"$work/runs" && echo 1 >"$staged/lib/one.a" && echo 1 >"$staged/include/old.h"; }
attempt one one
expect "a package that was never built" "well one " "$ended $(runs)"
expect "its file" 1 "$(cat "$prefix/lib/one.a")"
attempt one one
expect "a package as it is" "well " "$ended $(runs)"

one() { echo changed >>"$work/runs" && echo 2 >"$staged/lib/one.a"; }
attempt one one
expect "a changed recipe" "well changed " "$ended $(runs)"
expect "the new file" 2 "$(cat "$prefix/lib/one.a")"
expect "a file that is made no more" no "$([ -e "$prefix/include/old.h" ] && echo yes || echo no)"

there_is=2
attempt one one
expect "a new version of the source" "well changed " "$ended $(runs)"

inputs="compiler 13"
attempt one one
expect "another compiler" "well changed " "$ended $(runs)"

two() { echo two >>"$work/runs" && echo 1 >"$staged/lib/two.a"; }
attempt two two one
attempt two two one
expect "a package on another, as it is" "well " "$ended $(runs)"
one() { echo again >>"$work/runs" && echo 3 >"$staged/lib/one.a"; }
attempt one one
attempt two two one
expect "a package on another that was built again" "well two " "$ended $(runs)"

good=$(declare -f one)
one() { echo half >>"$work/runs" && echo 4 >"$staged/lib/one.a" && false; }
attempt one one
expect "a recipe that fails" "badly half " "$ended $(runs)"
expect "what was there before it" 3 "$(cat "$prefix/lib/one.a")"
attempt one one
expect "a recipe that failed, once more" "badly half " "$ended $(runs)"
eval "$good"
attempt one one
expect "the recipe of before" "well " "$ended $(runs)"

# Ended in the middle of going into the prefix.
one() { echo cut >>"$work/runs" && echo 5 >"$staged/lib/one.a"; }
(cp() { exit 9; } && build one one) >/dev/null 2>&1 || true
rm -f "$work/runs"
eval "$good"
attempt one one
expect "a prefix left in the middle" "well again " "$ended $(runs)"
expect "its file then" 3 "$(cat "$prefix/lib/one.a")"

[ "$broken" = 0 ] && echo "all as expected"
exit "$broken"
