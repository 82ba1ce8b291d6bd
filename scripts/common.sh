# Shared by run.sh, test.sh and .ci/run: what to install, and how to say what goes on. Sourced, not run.

PACKAGES_BUILD=(g++ cmake ninja-build pkg-config ccache mold
  libasio-dev libjson-c-dev libxml2-dev libspdlog-dev libcli11-dev libssl-dev liblmdb-dev libpq-dev
  libavformat-dev libavcodec-dev libavutil-dev libswscale-dev libswresample-dev)
PACKAGES_RUN=(ffmpeg ca-certificates)
PACKAGES_TEST=(libgtest-dev libgmock-dev librapidcheck-dev libbenchmark-dev binutils ffmpeg postgresql)
PACKAGES_WINDOWS=(g++-mingw-w64-x86-64-posix wine wine64 dpkg-dev make nasm)

say() {
  printf '\n== %s\n' "$*" >&2
}

fail() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}

as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    fail "needs root to install packages: run as root, or install sudo, or install yourself: ${missing[*]}"
  fi
}

# Installs those of the named Debian packages that are missing.
install_packages() {
  missing=()
  local package
  for package in "$@"; do
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  command -v apt-get >/dev/null || fail "this is no Debian system; install the like of: ${missing[*]}"
  say "installing ${missing[*]}"
  as_root apt-get update -qq || fail "the package lists cannot be updated; is the network there?"
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null ||
    fail "not all packages could be installed: ${missing[*]}"
}

# The compiler's cache takes what another checkout of the same sources compiled.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1

# Configures a preset, since a package may have come since the last time, and builds the named targets of it (all without
# names).
build_preset() {
  local preset=$1
  shift
  say "building ($preset)"
  cmake --preset "$preset" >/dev/null || fail "cmake --preset $preset failed"
  cmake --build --preset "$preset" ${1:+--target "$@"} || fail "the build failed; the first error above is the cause"
}
