#!/usr/bin/env bash
# Builds the libraries that Debian has no mingw packages of, for Windows x64: static, from Debian's own source packages,
# into a cache folder outside the checkout. What was built from the version that Debian has now, by the recipe that stands
# here now, is left alone. A recipe installs into a folder of its own, which goes into the prefix when it is whole.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/common.sh

usage() {
  cat <<'TEXT'
usage: scripts/mingw_deps.sh [--prefix]

Builds what is missing and prints the folder that holds headers and libraries; --prefix only prints it.
VOD_MINGW_CACHE names the cache folder (default: ~/.cache/win32-vod/mingw).

Exit status: 0 all is there, 1 something could not be had, 64 wrong arguments.
TEXT
}

cache=${VOD_MINGW_CACHE:-$HOME/.cache/win32-vod/mingw}
prefix=$cache/prefix
case "${1:-}" in
  "") ;;
  --prefix) printf '%s\n' "$prefix"; exit 0 ;;
  -h | --help) usage; exit 0 ;;
  *) printf 'mingw_deps.sh: unknown argument %s\n' "$1" >&2; usage >&2; exit 64 ;;
esac

host=x86_64-w64-mingw32
toolchain=$PWD/cmake/mingw-toolchain.cmake
jobs=$(nproc)
mkdir -p "$cache"
exec 9>"$cache/lock"
flock 9 # two runs at once would build over each other
. scripts/build_cache.sh

# ---- Debian's source packages, through lists of our own: the machine's configuration stays as it is -------------------

# with_sources SUITE TOOL ARGUMENT...
with_sources() {
  local suite=$1 tool=$2
  shift 2
  "$tool" -o Dir::Etc::sourcelist="$cache/$suite.sources" -o Dir::Etc::sourceparts=- \
    -o Dir::State::lists="$cache/lists-$suite" -o APT::Sandbox::User=root "$@"
}

# update_source_lists SUITE SUITES-OF-THE-MAIN-ARCHIVE SUITES-OF-THE-SECURITY-ARCHIVE
update_source_lists() {
  mkdir -p "$cache/lists-$1/partial"
  cat >"$cache/$1.sources" <<TEXT
Types: deb-src
URIs: http://deb.debian.org/debian
Suites: $2
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg

Types: deb-src
URIs: http://deb.debian.org/debian-security
Suites: $3
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
TEXT
  with_sources "$1" apt-get update -qq && return
  compgen -G "$cache/lists-$1/*_Sources*" >/dev/null || fail "Debian's lists of sources cannot be fetched; is the network there?"
  say "Debian's lists of sources cannot be fetched; those of an earlier run are used"
}

source_version() {
  with_sources bookworm apt-cache showsrc --only-source "$1" 2>/dev/null | sed -n 's/^Version: //p' | sort -V | tail -n 1
}

# The bare sources of the next release, where a mirror no longer has those of this one.
unpack_newer_source() {
  [ -d "$cache/lists-trixie" ] || update_source_lists trixie "trixie trixie-updates" trixie-security
  with_sources trixie apt-get source -qq --tar-only "$1" || return
  mkdir upstream && tar -C upstream -xf ./*.orig.tar.*
  # The files may stand in a folder of their own.
  [ "$(ls upstream | wc -l)" -ne 1 ] || { mv upstream packed && mv packed/* upstream; }
}

# The newest sources of this release that the mirror still has.
unpack_release_source() {
  local version
  for version in $(with_sources bookworm apt-cache showsrc --only-source "$1" | sed -n 's/^Version: //p' | sort -rV); do
    with_sources bookworm apt-get source -qq "$1=$version" && return
  done
  return 1
}

# Unpacks the source package and prints the folder.
unpack_source() {
  local package=$1 folder=$cache/sources/$1
  rm -rf "$folder"
  mkdir -p "$folder"
  (cd "$folder" && { unpack_release_source "$package" || unpack_newer_source "$package"; }) \
    >"$cache/logs/$package.source.log" 2>&1 || fail "the source of $package cannot be had"
  find "$folder" -mindepth 1 -maxdepth 1 -type d | head -n 1
}

# ---- Building -------------------------------------------------------------------------------------------------------------

build_inputs() {
  declare -f cmake_static install_staged
  cat "$toolchain"
  "$host-gcc-posix" --version
}

# install_staged FOLDER FILE...: for sources whose own installing knows no Windows.
install_staged() {
  local folder=$1
  shift
  cp "$@" "$staged/$folder/"
}

# cmake_static SOURCE [OPTION...]
cmake_static() {
  local source=$1
  shift
  cmake -S "$source" -B build-mingw -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$prefix" -DBUILD_SHARED_LIBS=OFF "$@" &&
    cmake --build build-mingw --parallel "$jobs" &&
    cmake --install build-mingw
}

build_json_c() {
  cmake_static . -DBUILD_TESTING=OFF -DBUILD_APPS=OFF -DDISABLE_WERROR=ON
}

# Without the definition an archive would mark everything as exported from whatever it goes into. Character sets come from
# the Windows code pages, which the project registers.
build_libxml2() {
  cmake_static . -DLIBXML2_WITH_ICONV=OFF -DLIBXML2_WITH_LZMA=OFF -DLIBXML2_WITH_ZLIB=OFF -DLIBXML2_WITH_PYTHON=OFF \
    -DLIBXML2_WITH_PROGRAMS=OFF -DLIBXML2_WITH_TESTS=OFF -DCMAKE_C_FLAGS=-DLIBXML_STATIC -DLIBXML2_WITH_FTP=OFF -DLIBXML2_WITH_HTTP=OFF
}

build_fmtlib() {
  cmake_static . -DFMT_TEST=OFF -DFMT_DOC=OFF
}

# Wide file names: the narrow ones could not spell every path.
build_spdlog() {
  cmake_static . -DSPDLOG_FMT_EXTERNAL=ON -DSPDLOG_WCHAR_FILENAMES=ON -DSPDLOG_BUILD_EXAMPLE=OFF -DSPDLOG_BUILD_TESTS=OFF
}

build_googletest() {
  cmake_static . -DBUILD_GMOCK=ON
}

build_rapidcheck() {
  cmake_static .
}

# No build description of its own that knows Windows: two files. It asks whether a reader's process has ended without the
# right to wait for it, and so takes one that somebody still has a handle of for a living one.
build_lmdb() {
  local folder
  folder=$(dirname "$(find . -name mdb.c | head -n 1)")
  grep -q 'OpenProcess(env->me_pidquery, ' "$folder/mdb.c" || return
  sed -i 's/OpenProcess(env->me_pidquery, /OpenProcess(env->me_pidquery | SYNCHRONIZE, /' "$folder/mdb.c"
  "$host-gcc-posix" -O2 -DNDEBUG -c "$folder/mdb.c" -o mdb.o &&
    "$host-gcc-posix" -O2 -DNDEBUG -c "$folder/midl.c" -o midl.o &&
    "$host-ar" rcs liblmdb.a mdb.o midl.o &&
    install_staged lib liblmdb.a &&
    install_staged include "$folder/lmdb.h" &&
    printf 'prefix=%s\nName: liblmdb\nDescription: ordered key-value store\nVersion: %s\nLibs: -L${prefix}/lib -llmdb -lntdll -ladvapi32\nCflags: -I${prefix}/include\n' \
      "$prefix" "$(source_version lmdb | sed 's/-.*//')" >"$staged/lib/pkgconfig/lmdb.pc"
}

# Of PostgreSQL only what programs talk to servers with, without encryption: on Windows such servers stand in the same
# network. What its own recipe calls libpq.a leads to a DLL. Its stand-ins for POSIX mutexes bear the names of those that
# the compiler's runtime has; one set can be linked, and both are a pointer that starts as null, so the runtime's serve.
build_libpq() {
  ./configure --host="$host" --prefix="$prefix" --without-readline --without-zlib --without-icu --without-openssl \
    CC="$host-gcc-posix" AR="$host-ar" RANLIB="$host-ranlib" &&
    make -C src/backend generated-headers &&
    make -j "$jobs" -C src/port libpgport_shlib.a &&
    make -j "$jobs" -C src/common libpgcommon_shlib.a &&
    make -j "$jobs" -C src/interfaces/libpq libpq.a &&
    rm -f src/interfaces/libpq/libpqrc.o src/interfaces/libpq/pthread-win32.o &&
    "$host-ar" rcs "$staged/lib/libpq.a" src/interfaces/libpq/*.o &&
    cp src/port/libpgport_shlib.a "$staged/lib/libpgport.a" &&
    cp src/common/libpgcommon_shlib.a "$staged/lib/libpgcommon.a" &&
    install_staged include src/interfaces/libpq/libpq-fe.h src/include/postgres_ext.h src/include/pg_config_ext.h &&
    cat >"$staged/lib/pkgconfig/libpq.pc" <<TEXT
Name: libpq
Description: PostgreSQL's client library
Version: 15
Libs: -L$prefix/lib -lpq -lpgcommon -lpgport -lsecur32 -lshell32 -lws2_32 -ladvapi32
Cflags: -I$prefix/include
TEXT
}

build_x264() {
  ./configure --host="$host" --cross-prefix="$host-" --prefix="$prefix" --enable-static --disable-cli --bit-depth=8 \
    --disable-opencl --enable-pic &&
    make -j "$jobs" &&
    make install
}

build_x265() {
  cmake_static source -DENABLE_SHARED=OFF -DENABLE_CLI=OFF -DCMAKE_POLICY_VERSION_MINIMUM=3.5
}

# What cameras, recorders and telephones write, and what the tests make.
build_ffmpeg() {
  PKG_CONFIG_LIBDIR=$prefix/lib/pkgconfig ./configure --arch=x86_64 --target-os=mingw32 --cross-prefix="$host-" \
    --pkg-config=pkg-config --pkg-config-flags=--static --prefix="$prefix" --extra-ldflags=-static \
    --enable-gpl --enable-libx264 --enable-libx265 --disable-programs --disable-doc --disable-debug --disable-network \
    --disable-avdevice --disable-avfilter --disable-postproc --disable-everything --enable-protocol=file,pipe \
    --enable-demuxer=avi,mov,matroska,mpegts,mpegps,mpegvideo,h264,hevc,flv,asf,wav,ogg,mp3,aac,dv,mjpeg,rawvideo,m4v,yuv4mpegpipe,nut,concat \
    --enable-decoder=h264,hevc,mpeg4,mpeg1video,mpeg2video,msmpeg4v1,msmpeg4v2,msmpeg4v3,mjpeg,h263,flv,wmv1,wmv2,wmv3,vc1,vp8,vp9,dvvideo,rawvideo,ffv1,huffyuv,aac,mp2,mp3,ac3,vorbis,opus,flac,pcm_alaw,pcm_mulaw,pcm_s16le,pcm_s16be,pcm_s24le,pcm_u8,pcm_f32le,adpcm_ima_wav,adpcm_ms,adpcm_g726,wmav1,wmav2 \
    --enable-encoder=libx264,libx265,aac,mpeg4,mjpeg,flac,pcm_alaw,pcm_mulaw,pcm_s16le,rawvideo \
    --enable-muxer=mp4,mov,matroska,avi,mpegts,h264,hevc,wav,rawvideo,nut \
    --enable-parser=h264,hevc,mpeg4video,mpegvideo,mjpeg,aac,ac3,mpegaudio,vp8,vp9,vc1,opus,vorbis,flac,dvd_nav,h263 \
    --enable-bsf=h264_mp4toannexb,hevc_mp4toannexb,extract_extradata,aac_adtstoasc,null,h264_metadata,hevc_metadata,dump_extra &&
    make -j "$jobs" &&
    make install
}

# Headers only, the same for every host.
copy_headers() {
  rm -rf "$prefix/include/asio" "$prefix/include/asio.hpp" "$prefix/include/CLI"
  cp -r /usr/include/asio /usr/include/asio.hpp "$prefix/include/"
  cp -r /usr/include/CLI "$prefix/include/"
  mkdir -p "$prefix/share/cmake"
  cp -r /usr/share/cmake/CLI11 "$prefix/share/cmake/"
}

# For the archive that ships: what is linked into the programs, as Debian describes it.
copy_licences() {
  local folder=$prefix/share/licenses package name
  mkdir -p "$folder"
  while read -r name package; do
    if [ -f "/usr/share/doc/$package/copyright" ]; then cp "/usr/share/doc/$package/copyright" "$folder/$name.txt"; fi
  done <<'TEXT'
json-c libjson-c-dev
libxml2 libxml2-dev
lmdb liblmdb-dev
libpq libpq-dev
spdlog libspdlog-dev
fmt libfmt-dev
asio libasio-dev
cli11 libcli11-dev
ffmpeg libavcodec-dev
x264 libx264-164
x265 libx265-199
gcc-runtime gcc-mingw-w64-x86-64-posix
mingw-w64-runtime mingw-w64-x86-64-dev
TEXT
  if [ -f /usr/share/common-licenses/GPL-2 ]; then cp /usr/share/common-licenses/GPL-2 "$folder/GPL-2.txt"; fi
}

# The shared runtime is none of ours.
tidy_descriptions() {
  sed -i 's/ -lgcc_s\b//g' "$prefix"/lib/pkgconfig/*.pc
}

install_packages "${PACKAGES_BUILD[@]}" "${PACKAGES_WINDOWS[@]}"
update_source_lists bookworm "bookworm bookworm-updates" bookworm-security
build json-c build_json_c
build libxml2 build_libxml2
build fmtlib build_fmtlib
build spdlog build_spdlog fmtlib
build googletest build_googletest
build rapidcheck build_rapidcheck
build lmdb build_lmdb
build postgresql-15 build_libpq
build x264 build_x264
build x265 build_x265
build ffmpeg build_ffmpeg x264 x265
tidy_descriptions
copy_headers
copy_licences
printf '%s\n' "$prefix"
