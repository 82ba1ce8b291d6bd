#!/bin/bash
# Puts vtest.avi, 79 seconds of real street footage, into a cache folder: taken out of Debian's package opencv-doc, which
# is fetched but not installed. Does nothing when the film is already there.
set -euo pipefail

usage() {
    cat <<'TEXT'
usage: scripts/demo_footage.sh CACHE_FOLDER

Leaves CACHE_FOLDER/vtest.avi and prints its path. Needs Debian's apt-get and dpkg-deb; fetches about 95 MB once.
A package file opencv-doc_*.deb that already lies in CACHE_FOLDER, or that OPENCV_DOC_DEB names, is used instead.

Exit status: 0 the film is there, 1 it cannot be had, 64 wrong arguments.
TEXT
}

fail() {
    echo "demo_footage.sh: $*" >&2
    exit 1
}

case "${1:-}" in
    -h | --help) usage; exit 0 ;;
    -*) usage >&2; exit 64 ;;
esac
[ $# -eq 1 ] && [ -n "$1" ] || { usage >&2; exit 64; }

mkdir -p -- "$1" || fail "cannot make the folder $1"
cache=$(cd -- "$1" && pwd)
film=$cache/vtest.avi
# An AVI begins with RIFF and its length.
is_film() { [ -s "$1" ] && [ "$(head -c 4 -- "$1")" = RIFF ]; }

if is_film "$film"; then
    echo "$film"
    exit 0
fi

for tool in dpkg-deb tar; do
    command -v "$tool" >/dev/null || fail "$tool is missing: this works on Debian and what is built on it"
done

work=$(mktemp -d -- "$cache/.fetch-XXXXXX")
trap 'rm -rf -- "$work"' EXIT

find_package() {
    local found
    if [ -n "${OPENCV_DOC_DEB:-}" ]; then
        [ -f "$OPENCV_DOC_DEB" ] || fail "OPENCV_DOC_DEB names $OPENCV_DOC_DEB, which is not there"
        echo "$OPENCV_DOC_DEB"
        return
    fi
    found=$(find "$cache" -maxdepth 1 -name 'opencv-doc_*.deb' | sort | tail -n 1)
    if [ -z "$found" ]; then
        command -v apt-get >/dev/null || fail "apt-get is missing: this works on Debian and what is built on it"
        echo "demo_footage.sh: fetching opencv-doc (95 MB)" >&2
        (cd "$work" && apt-get -q download opencv-doc >&2) || fail "opencv-doc cannot be fetched. Without a network, put \
its .deb file into $cache (on another machine: apt-get download opencv-doc) and run this again; on a new machine run \
apt-get update first"
        found=$(find "$work" -name 'opencv-doc_*.deb' | head -n 1)
    fi
    [ -n "$found" ] || fail "apt-get brought no opencv-doc_*.deb"
    echo "$found"
}

package=$(find_package)
# Some versions of the package keep the film compressed.
entry=$(dpkg-deb --fsys-tarfile "$package" | tar -t | grep -E '/vtest\.avi(\.gz)?$' | head -n 1) \
    || fail "$package holds no vtest.avi"
if [[ $entry == *.gz ]]; then
    dpkg-deb --fsys-tarfile "$package" | tar -xO "$entry" | gzip -d >"$work/vtest.avi"
else
    dpkg-deb --fsys-tarfile "$package" | tar -xO "$entry" >"$work/vtest.avi"
fi
is_film "$work/vtest.avi" || fail "what $package holds as vtest.avi is no film"
mv -- "$work/vtest.avi" "$film"
echo "$film"
