#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test. Ends with the test runner's summary.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
. scripts/common.sh

usage() {
  cat <<'TEXT'
usage: ./test.sh [--preset NAME] [--only PATTERN] [--jobs N]

  --preset NAME   debug (default), asan (address and undefined behaviour), tsan (data races), release,
                  mingw (the same tests as Windows programs, under Wine)
  --only PATTERN  only tests whose name matches this regular expression
  --jobs N        tests that run at once (default: one for each processor)

Exit status: 0 all tests passed, 1 something failed, 64 wrong arguments.
TEXT
}

preset=debug only=. jobs=$(nproc)
while [ $# -gt 0 ]; do
  case "$1" in
    --preset) preset=${2:-}; shift 2 || { usage >&2; exit 64; } ;;
    --only) only=${2:-}; shift 2 || { usage >&2; exit 64; } ;;
    --jobs) jobs=${2:-}; shift 2 || { usage >&2; exit 64; } ;;
    -h | --help) usage; exit 0 ;;
    *) printf 'test.sh: unknown argument %s\n' "$1" >&2; usage >&2; exit 64 ;;
  esac
done
case "$preset" in
  debug | asan | tsan | release | coverage | mingw) ;;
  *) printf 'test.sh: no such preset: %s\n' "$preset" >&2; usage >&2; exit 64 ;;
esac

install_packages "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}"
if [ "$preset" = mingw ]; then
  scripts/mingw_deps.sh >/dev/null
  build_preset mingw
  # Wine's own files, before many tests ask for them at once.
  WINEPREFIX=$PWD/build/mingw/wine WINEDEBUG=-all wine wineboot --init >/dev/null 2>&1
else
  build_preset "$preset"
fi
say "testing ($preset)"
exec ctest --test-dir "build/$preset" --output-on-failure --parallel "$jobs" --tests-regex "$only" --progress
