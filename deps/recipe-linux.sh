# shellcheck shell=bash disable=SC2034,SC2154,SC2164,SC2016  # variables go from file to file, -e is on
# FFmpeg for Linux: shared libraries over Debian's x264, LAME and Opus, that hold mbedTLS and SRT. Sourced by build.sh; part of the recipe hash.

required_commands=(gcc g++ make cmake nasm pkg-config strip readelf)
required_pkg_config=(x264 opus zlib ffnvcodec)
required_files=(/usr/include/lame/lame.h)
packages_set=build-linux

network_make_options=(CFLAGS='-O2 -fPIC')
network_cmake_options=(-DCMAKE_POSITION_INDEPENDENT_CODE=ON)
network_libraries='-lstdc++ -lm -lpthread'

build_steps=(
  "patch|patch_sources"
  "compile mbedTLS|build_mbedtls"
  "compile SRT|build_srt"
  "configure FFmpeg|configure_ffmpeg"
  "compile FFmpeg|compile_ffmpeg"
  "install|ffmpeg_install"
  "check|check_libraries"
)

configure_ffmpeg() {
  cd "$work/FFmpeg"
  PKG_CONFIG_PATH="$(sysroot)/lib/pkgconfig" ./configure "${ffmpeg_common_options[@]}" --enable-pthreads \
    --extra-cflags=-I../sysroot/include --extra-ldflags=-L../sysroot/lib
  check_components
  # The libraries find each other beside themselves, so that a product folder can be moved. It goes straight into
  # config.mak, as configure's quoting does not survive a dollar sign; make expands the line twice, hence four.
  sed -i "s|^LDSOFLAGS=|&-Wl,-rpath,'\$\$\$\$ORIGIN' |" ffbuild/config.mak
}

compile_ffmpeg() {
  make -C "$work/FFmpeg" -j"$jobs"
}

check_libraries() {
  local name
  for name in avformat.so.58 avcodec.so.58 avutil.so.56 swresample.so.3 swscale.so.5; do
    readelf -d "$stage/lib/lib$name" | grep -E 'R(UN)?PATH.*\[\$ORIGIN\]'
    if readelf -d "$stage/lib/lib$name" | grep -E 'NEEDED.*lib(srt|mbed)'; then return 1; fi
  done
  PKG_CONFIG_PATH="$stage/lib/pkgconfig" pkg-config --exact-version=58.45.100 libavformat
}
