#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: natively, then as Windows programs. Ends with the summary.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
. scripts/common.sh

usage() {
  cat <<'TEXT'
usage: ./test.sh [--no-windows] [--preset NAME] [--only PATTERN] [--jobs N]

  --no-windows    leave out the second half: the Windows build, its tests under Wine, and those between both hosts
  --preset NAME   one build only: debug (which the first half is), asan (address and undefined behaviour),
                  tsan (data races), release, coverage, mingw (which the second half is)
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

presets=(debug mingw) only=. jobs=$(nproc)
while [ $# -gt 0 ]; do
  case "$1" in
    --no-windows) presets=(debug); shift ;;
    --preset) presets=("${2:-}"); shift 2 || wrong_arguments "--preset wants a name" ;;
    --only) only=${2:-}; shift 2 || wrong_arguments "--only wants a pattern" ;;
    --jobs) jobs=${2:-}; shift 2 || wrong_arguments "--jobs wants a number" ;;
    -h | --help) usage; exit 0 ;;
    *) wrong_arguments "unknown argument $1" ;;
  esac
done
case "${presets[0]}" in
  debug | asan | tsan | release | coverage | mingw) ;;
  *) wrong_arguments "no such preset: ${presets[0]}" ;;
esac
[[ "$jobs" =~ ^[1-9][0-9]*$ ]] || wrong_arguments "--jobs wants a number, not $jobs"

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

# Programs of one host against those of the other.
test_cross() {
  local stages=""
  stage tests run_tests cross debug --label-regex '^cross$'
  summarise cross
}

install_packages "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}"
case "${presets[*]}" in *mingw*) install_packages "${PACKAGES_WINDOWS[@]}" ;; esac
for preset in "${presets[@]}"; do
  test_preset "$preset"
done
[ ${#presets[@]} -eq 1 ] || test_cross
[ "$total" -gt 0 ] || fail "no test has a name that matches $only"
printf '\n'
printf '%s\n' "${summary[@]}"
[ ${#presets[@]} -eq 1 ] || printf '%s%% tests passed, %s tests failed out of %s\n' \
  $(((total - failed) * 100 / total)) "$failed" "$total"
[ "$passed" = yes ]
