# A prefix that libraries are built into one by one, each again only when what it was built from has changed. Sourced.
# The caller sets `cache` (the folder of all this) and `prefix` (inside it), and defines
#   source_version PACKAGE    prints the version of the source that there is now, or nothing
#   unpack_source PACKAGE     unpacks it and prints the folder
#   build_inputs              prints what all recipes rest on: helper functions, settings, the compiler's version
# A recipe is a function that builds in the unpacked source and installs below "$staged", which stands for the prefix;
# installers that know DESTDIR do so by themselves.

export DESTDIR=$cache/staged
staged=$DESTDIR$prefix
mkdir -p "$cache/sources" "$cache/logs" "$prefix/lib/pkgconfig" "$prefix/include" "$prefix/stamps"

# What a library is built from: the source's version, the recipe's text and what all rest on, and the same of the packages
# that it is built on.
# stamp_of VERSION RECIPE [PACKAGE...]
stamp_of() {
  local version=$1 recipe=$2 key
  shift 2
  key=$({
    declare -f "$recipe"
    build_inputs
    [ $# -eq 0 ] || (cd "$prefix/stamps" && cat "$@")
  } | sha256sum)
  printf '%s %s\n' "$version" "${key:0:16}"
}

# Takes out of the prefix what an earlier build of the package put there.
take_out() {
  local list=$prefix/stamps/$1.files
  [ ! -f "$list" ] || (cd "$prefix" && xargs -r -d '\n' rm -f <"$list")
  rm -f "$list"
}

# The stamp goes first and comes last, so that what was left in the middle is built again.
# put_in PACKAGE STAMP
put_in() {
  local package=$1 stamp=$2
  rm -f "$prefix/stamps/$package"
  take_out "$package"
  (cd "$staged" && find . \( -type f -o -type l \)) >"$prefix/stamps/$package.files"
  cp -a "$staged/." "$prefix/"
  printf '%s\n' "$stamp" >"$prefix/stamps/$package"
}

# build PACKAGE RECIPE [PACKAGE...]: runs RECIPE unless the prefix holds what it makes of this version, on the further
# packages as they are now.
build() {
  local package=$1 recipe=$2 version stamp folder log=$cache/logs/$1.log
  shift 2
  version=$(source_version "$package")
  [ -n "$version" ] || fail "there is no source package $package"
  stamp=$(stamp_of "$version" "$recipe" "$@")
  [ "$(cat "$prefix/stamps/$package" 2>/dev/null)" != "$stamp" ] || return 0
  say "building $package $version"
  folder=$(unpack_source "$package")
  rm -rf "$DESTDIR"
  mkdir -p "$staged/lib/pkgconfig" "$staged/include"
  (cd "$folder" && "$recipe") >"$log" 2>&1 || { tail -n 40 "$log" >&2; fail "$package did not build; see $log"; }
  put_in "$package" "$stamp"
  rm -rf "$cache/sources/$package" "$DESTDIR"
}
