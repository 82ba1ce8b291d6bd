#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test. Ends with the test runner's summary.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
. scripts/common.sh

usage() {
  cat <<'TEXT'
usage: ./test.sh [--preset NAME] [--only PATTERN] [--jobs N]

  --preset NAME   debug (default), asan (address and undefined behaviour), tsan (data races), release
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
  debug | asan | tsan | release | coverage) ;;
  *) printf 'test.sh: no such preset: %s\n' "$preset" >&2; usage >&2; exit 64 ;;
esac

install_packages "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}"
build_preset "$preset"
say "testing ($preset)"
exec ctest --test-dir "build/$preset" --output-on-failure --parallel "$jobs" --tests-regex "$only" --progress
