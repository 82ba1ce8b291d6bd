#!/usr/bin/env bash
# Installs what is missing, builds, and runs the tests natively; with --all as Windows programs too. Ends with the summary.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
. scripts/common.sh

usage() {
  cat <<'TEXT'
usage: ./test.sh [--all] [--sanitizers] [--preset NAME] [--threads] [--only PATTERN] [--jobs N]

Without arguments: the native suite (preset debug).
  --all           adds the Windows build, its tests under Wine, and those between both hosts
  --sanitizers    the native suite under address and undefined-behaviour sanitizers instead (preset asan), and once more
                  the tests that start threads under the one for data races (preset tsan)
  --preset NAME   one build only: debug, asan, tsan, release, coverage, mingw (the Windows programs)
  --threads       of a --preset only the tests that start threads; nothing else is built
  --only PATTERN  only tests whose name matches this regular expression
  --jobs N        tests that run at once (default: one for each processor)

Exit status: 0 all tests passed, 1 something failed, 64 wrong arguments.
TEXT
}

wrong_arguments() {
  [ $# -eq 0 ] || printf 'test.sh: %s\n' "$*" >&2
  usage >&2
  exit 64
}

all=no sanitizers=no preset="" threads=no only=. jobs=$(nproc)
while [ $# -gt 0 ]; do
  case "$1" in
    --all) all=yes; shift ;;
    --sanitizers) sanitizers=yes; shift ;;
    --threads) threads=yes; shift ;;
    --preset) preset=${2:-}; shift 2 || wrong_arguments "--preset wants a name" ;;
    --only) only=${2:-}; shift 2 || wrong_arguments "--only wants a pattern" ;;
    --jobs) jobs=${2:-}; shift 2 || wrong_arguments "--jobs wants a number" ;;
    -h | --help) usage; exit 0 ;;
    *) wrong_arguments "unknown argument $1" ;;
  esac
done
case "$preset" in
  "") [ "$threads" = no ] || wrong_arguments "--threads goes with --preset" ;;
  debug | asan | tsan | release | coverage | mingw)
    [ "$all$sanitizers" = nono ] || wrong_arguments "--preset names one build; leave out --all and --sanitizers" ;;
  *) wrong_arguments "no such preset: $preset" ;;
esac
[[ "$jobs" =~ ^[1-9][0-9]*$ ]] || wrong_arguments "--jobs wants a number, not $jobs"
[ -n "$only" ] || wrong_arguments "--only wants a pattern"

log=$(mktemp)
trap 'rm -f "$log"; end_wine' EXIT
summary=() passed=yes total=0 failed=0

# Runs a command and adds its name and how long it took to the stages of the summary.
stage() {
  local name=$1 started=$SECONDS
  shift
  "$@"
  stages+="${stages:+, }$name $((SECONDS - started)) s"
}

prepare_windows() {
  scripts/mingw_deps.sh >/dev/null
}

# Wine's own files are made before many tests ask for them at once, and its server stays: starting it costs seconds.
prepare_wine() {
  mkdir -p build/mingw
  export WINEPREFIX=$PWD/build/mingw/wine
  wine_is_ours=yes
  scripts/wine.sh wineboot --init >/dev/null 2>&1 || fail "Wine cannot make its folder $WINEPREFIX"
  WINEDEBUG=-all wineserver --persistent >/dev/null 2>&1 || true # it may run already
}

end_wine() {
  [ "${wine_is_ours:-no}" = no ] || wineserver --kill >/dev/null 2>&1 || true
}

# run_tests NAME PRESET CTEST-OPTION...
run_tests() {
  local name=$1 preset=$2
  shift 2
  say "testing ($name)"
  ctest --test-dir "build/$preset" --output-on-failure --parallel "$jobs" --tests-regex "$only" --progress "$@" 2>&1 |
    tee "$log" || passed=no
}

# Takes the last run's figures into the summary: summarise NAME
summarise() {
  local line
  line=$(grep -E 'tests passed, [0-9]+ tests failed out of [0-9]+' "$log" | tail -n 1) || line="no tests"
  summary+=("$1: $line ($stages)")
  if [[ "$line" =~ \ ([0-9]+)\ tests\ failed\ out\ of\ ([0-9]+) ]]; then
    failed=$((failed + BASH_REMATCH[1])) total=$((total + BASH_REMATCH[2]))
  fi
}

# Tests of both hosts together are left to test_cross.
test_preset() {
  local preset=$1 stages=""
  if [ "$preset" = mingw ]; then
    stage dependencies prepare_windows
    stage build build_preset mingw
    stage Wine prepare_wine
  else
    stage build build_preset "$preset"
  fi
  stage tests run_tests "$preset" "$preset" --label-exclude '^cross$'
  summarise "$preset"
}

# Only the programs whose tests start threads are built.
test_threads() {
  local preset=$1 stages=""
  stage build build_preset "$preset" thread_tests
  stage tests run_tests "$preset, threads" "$preset" --label-regex threads
  summarise "$preset"
}

# Programs of one host against those of the other.
test_cross() {
  local native=$1 stages=""
  stage tests run_tests cross "$native" --label-regex '^cross$'
  summarise cross
}

# Before anything is configured: what is found decides what is built.
install_packages "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}"
[ "$all" = no ] && [ "$preset" != mingw ] || install_packages "${PACKAGES_WINDOWS[@]}"

native=debug
[ "$sanitizers" = no ] || native=asan
if [ "$threads" = yes ]; then
  test_threads "$preset"
else
  test_preset "${preset:-$native}"
fi
[ "$sanitizers" = no ] || test_threads tsan
if [ "$all" = yes ]; then
  test_preset mingw
  test_cross "$native"
fi

[ "$total" -gt 0 ] || fail "no test has a name that matches $only"
printf '\n'
printf '%s\n' "${summary[@]}"
printf '%s%% tests passed, %s tests failed out of %s\n' $(((total - failed) * 100 / total)) "$failed" "$total"
[ "$passed" = yes ]
