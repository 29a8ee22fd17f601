# shellcheck shell=bash disable=SC2034,SC2154,SC2206,SC2207,SC2016  # variables go from file to file, -e is on
# What FFmpeg is built with on both systems. Sourced by build.sh; part of the recipe hash.
#
# Every recipe runs with the variables of build.sh: $work (scratch folder holding one source folder a tarball: FFmpeg,
# mbedTLS, SRT, x264, LAME, Opus), $stage (what becomes the prefix) and $jobs.

# FFmpeg writes its whole configure line into the libraries, so no machine's path may stand in it: it is configured for
# this made-up prefix and installed with DESTDIR.
readonly kNeutralPrefix=/zeva-ffmpeg

# Where the static libraries that go into FFmpeg's shared ones are gathered.
sysroot() { echo "$work/sysroot"; }

# An --enable option for each part that components.txt names.
component_options() {
  sed -E 's/#.*//; s/^([a-z]+) +([a-z0-9_]+).*/--enable-\1=\2/' "$here/components.txt" | grep .
}

# Nothing is taken because a machine happens to have it: what is wanted stands here, so that all machines get the same.
# Thread support is among what --disable-autodetect turns off; each system's recipe names its own.
ffmpeg_common_options=(
  --prefix=$kNeutralPrefix
  --enable-shared --disable-static --disable-debug
  --disable-programs --disable-doc --disable-avdevice --disable-avfilter --disable-postproc
  --disable-autodetect
  --enable-network --enable-mbedtls --enable-libsrt
  --enable-gpl --enable-version3 --enable-libx264 --enable-libmp3lame --enable-libopus
  --enable-zlib --enable-ffnvcodec --enable-nvenc
  --disable-everything $(component_options)
)

# Fixes that came after the releases, of each source in a folder of its name; one that does not fit exactly ends the build.
patch_sources() {
  local patch source
  for patch in "$here"/patches/*/*.patch; do
    source=$(basename "$(dirname "$patch")")
    echo "applying ${patch##*/} to $source"
    patch -d "$work/$source" -p1 --fuzz=0 --forward --no-backup-if-mismatch < "$patch"
  done
}

# configure only warns of a name that it does not know, and leaves a part out when something that part needs is missing.
check_components() {
  local kind name missing=()
  while read -r kind name _; do
    [[ -n $kind && $kind != \#* ]] || continue
    grep -q "^#define CONFIG_${name^^}_${kind^^} 1$" "$work/FFmpeg/config.h" || missing+=("$kind $name")
  done < "$here/components.txt"
  ((${#missing[@]} == 0)) || fail "FFmpeg cannot be built with these of components.txt: ${missing[*]}."
}

# Stage the installed tree and let its pkg-config files find it wherever the prefix lies.
ffmpeg_install() {
  make -C "$work/FFmpeg" DESTDIR="$work/root" install
  cp -a "$work/root$kNeutralPrefix/." "$stage/"
  # Libs.private would name static libraries that only existed during the build; a shared FFmpeg needs none of them.
  sed -i -e 's|^prefix=.*|prefix=${pcfiledir}/../..|' -e "s|$kNeutralPrefix|\${prefix}|g" \
    -e '/^Libs.private:/d' "$stage"/lib/pkgconfig/*.pc
  rm -rf "$stage/share"
}
