#!/bin/bash
# Builds the pinned FFmpeg for one system into a cache folder; a second run finds it there.
#
#   deps/build.sh linux|windows             build if needed
#   deps/build.sh --prefix linux|windows    print where it is or will be, and do nothing
#
# ZEVA_DEPS_CACHE     the cache; default ~/.cache/zeva
# ZEVA_DEPS_TARBALLS  a folder that holds the source tarballs; default: Debian's mirror, as apt knows it
# ZEVA_JOBS           compilers at once; default: one a processor
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=../scripts/lib.sh
. "$here/../scripts/lib.sh"

# --- where the result lies ---------------------------------------------------------------------------------------

# The folder's name changes with anything that changes the result, so an old build is never taken for a new one. This
# script is no part of it (it says how to fetch and report, not what to build), nor are comments and the other system.
prefix_of() {
  local hash
  hash=$(
    {
      grep -E "^[a-z,]*\b$1\b" "$here/tarballs.txt"
      sed -E '/^ *(#|$)/d' "$here/recipe-ffmpeg.sh" "$here/recipe-network.sh" "$here/recipe-$1.sh"
      awk '!/^(#|$)/ { print $1, $2 }' "$here/components.txt"
      cat "$here"/patches/*/*.patch
    } | sha256sum
  )
  echo "$cache/$1-${hash:0:12}"
}

# --- tarballs ----------------------------------------------------------------------------------------------------

has_sum() {
  [[ -f $1 && $(sha256sum < "$1") == "$2  -" ]]
}

# Addresses of the mirrors this machine already uses. Source tarballs lie in the same pool as the packages.
debian_mirrors() {
  command -v apt-get > /dev/null || return 0
  # shellcheck disable=SC2016  # apt fills it in
  apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 2> /dev/null | sort -u
}

# Puts a tarball into the cache's tarball folder, checked: from the named folder, or the mirror, or the folder that some
# checkouts have beside them.
fetch() {
  local name=$1 tarball=$2 pool=$3 sum=$4 mirror
  local target="$cache/tarballs/$tarball" beside="$here/../../shared/deps/$tarball"
  if [[ -n ${ZEVA_DEPS_TARBALLS:-} ]]; then
    target=$ZEVA_DEPS_TARBALLS/$tarball
    [[ -f $target ]] || fail "the source of $name, $tarball, is not in the folder ZEVA_DEPS_TARBALLS names."
    has_sum "$target" "$sum" || fail "$target is not the pinned source of $name: its sha256 differs."
    fetched=$target
    return
  fi
  fetched=$target
  ! has_sum "$target" "$sum" || return 0
  mkdir -p "$cache/tarballs"
  for mirror in $(debian_mirrors); do
    curl --silent --fail --location --connect-timeout 20 --retry 2 \
      --output "$target.part" "${mirror%/}/pool/$pool/${tarball//+/%2B}" >> "$log" 2>&1 || continue
    if has_sum "$target.part" "$sum"; then
      mv "$target.part" "$target"
      return
    fi
    echo "$mirror gave a $tarball with another sha256" >> "$log"
  done
  rm -f "$target.part"
  if has_sum "$beside" "$sum"; then
    cp "$beside" "$target"
    return
  fi
  fail "the source of $name, $tarball, could not be had from Debian's mirror; put it into a folder and name that in ZEVA_DEPS_TARBALLS."
}

# The listing is looked at before anything is written: one top folder, and no entry that leaves it.
unpack() {
  local name=$1 tarball=$2 listing
  listing=$(tar -tf "$tarball" 2>> "$log") || fail "${tarball##*/} cannot be read as an archive."
  if grep -q -E '^/|(^|/)\.\.(/|$)' <<< "$listing"; then
    fail "${tarball##*/} holds paths that lead out of its folder."
  fi
  if [[ $(cut -d/ -f1 <<< "$listing" | sort -u | wc -l) -ne 1 ]]; then
    fail "${tarball##*/} holds more than one top folder."
  fi
  mkdir -p "$work/$name"
  tar -xf "$tarball" -C "$work/$name" --strip-components=1 --no-same-owner
}

fetch_and_unpack_all() {
  local systems name tarball pool sum
  while read -r systems name tarball pool sum; do
    [[ $systems != \#* && ,$systems, == *,$system,* ]] || continue
    fetch "$name" "$tarball" "$pool" "$sum"
    unpack "$name" "$fetched"
  done < "$here/tarballs.txt"
}

# --- steps -------------------------------------------------------------------------------------------------------

# The compilers' own output says little; the number of files tells how far it is.
progress_note() {
  echo "$(find "$work" -name '*.o' | wc -l) files compiled"
}

check_machine() {
  local what missing=()
  for what in curl tar xz patch "${required_commands[@]}"; do
    command -v "$what" > /dev/null || missing+=("$what")
  done
  for what in "${required_files[@]}"; do
    [[ -e $what ]] || missing+=("$what")
  done
  if command -v pkg-config > /dev/null; then
    for what in "${required_pkg_config[@]}"; do
      pkg-config --exists "$what" || missing+=("$what (pkg-config)")
    done
  fi
  ((${#missing[@]} == 0)) ||
    fail "missing on this machine: ${missing[*]}; 'scripts/packages.sh $packages_set' installs what is needed."
}

run_all_steps() {
  local entry
  step_total=$((${#build_steps[@]} + 1))
  step_number=1
  echo "[1/$step_total] fetch and unpack sources"
  fetch_and_unpack_all
  for entry in "${build_steps[@]}"; do
    step "${entry%%|*}" "${entry#*|}"
  done
}

# --- one build ---------------------------------------------------------------------------------------------------

# Builds in a folder beside the prefix and moves the result into place, the stamp last: an interrupted build leaves no
# folder that looks like a finished one.
build() {
  local prefix=$1
  work=$prefix.building/work
  stage=$prefix.building/prefix
  rm -rf "$prefix.building" "$prefix"
  mkdir -p "$work" "$stage"
  open_log "$cache/log" "$(basename "$prefix")"
  echo "FFmpeg for $system goes into $prefix; log: $log"
  run_all_steps
  mv "$stage" "$prefix"
  touch "$prefix/.complete"
  rm -rf "$prefix.building"
}

main() {
  local only_prefix=
  if [[ ${1:-} == --prefix ]]; then
    only_prefix=yes
    shift
  fi
  system=${1:-}
  [[ $# -eq 1 && ($system == linux || $system == windows) ]] || fail "usage: build.sh [--prefix] linux|windows"
  local prefix
  prefix=$(prefix_of "$system")
  if [[ -n $only_prefix ]]; then
    echo "$prefix"
    return
  fi
  [[ ! -e $prefix/.complete ]] || return 0

  # What a caller's make or shell has set must not colour the build.
  unset CFLAGS CXXFLAGS CPPFLAGS LDFLAGS CC CXX AR AS LD MAKEFLAGS MFLAGS MAKELEVEL DESTDIR \
    PKG_CONFIG_PATH PKG_CONFIG_LIBDIR PKG_CONFIG_SYSROOT_DIR
  # shellcheck source-path=SCRIPTDIR source=recipe-ffmpeg.sh
  . "$here/recipe-ffmpeg.sh"
  # shellcheck source-path=SCRIPTDIR source=recipe-network.sh
  . "$here/recipe-network.sh"
  # shellcheck source-path=SCRIPTDIR source=recipe-linux.sh
  . "$here/recipe-$system.sh"
  check_machine
  mkdir -p "$cache/log" 2> /dev/null || fail "the cache folder $cache cannot be written."
  # Two builds at once would write into the same folder: the second waits and then finds the first one's result.
  exec 9> "$cache/log/$(basename "$prefix").lock"
  if ! flock -n 9; then
    echo "another build of FFmpeg for $system is running; waiting for it"
    flock 9
  fi
  [[ ! -e $prefix/.complete ]] || return 0
  build "$prefix"
}

main "$@"
