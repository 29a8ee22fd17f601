# shellcheck shell=bash disable=SC2034,SC2154,SC2164,SC2206,SC2086  # variables go from file to file, -e is on
# FFmpeg for 64-bit Windows, cross-built: DLLs that hold mbedTLS, SRT, x264, LAME, Opus, zlib and the compiler's runtime, so
# that they need nothing beside them but each other and Windows. Sourced by build.sh; part of the recipe hash.

readonly kTriplet=x86_64-w64-mingw32
# The plain mingw compilers have no std::thread; the whole product is built with the -posix ones.
readonly kCompiler=$kTriplet-gcc-posix
readonly kCxxCompiler=$kTriplet-g++-posix

required_commands=(gcc make cmake nasm pkg-config $kCompiler $kCxxCompiler $kTriplet-windres $kTriplet-strip $kTriplet-objdump)
required_pkg_config=(ffnvcodec)
required_files=(/usr/$kTriplet/lib/libz.a)
packages_set=windows

network_make_options=(CC=$kCompiler AR=$kTriplet-ar WINDOWS=1)
network_cmake_options=(-DCMAKE_SYSTEM_NAME=Windows -DCMAKE_C_COMPILER=$kCompiler -DCMAKE_CXX_COMPILER=$kCxxCompiler)
network_libraries='-lstdc++ -lm -lpthread -lws2_32'

build_steps=(
  "patch|patch_sources"
  "compile mbedTLS|build_mbedtls"
  "compile SRT|build_srt"
  "compile x264|build_x264"
  "compile LAME|build_lame"
  "compile Opus|build_opus"
  "configure FFmpeg|configure_ffmpeg"
  "compile FFmpeg|compile_ffmpeg"
  "install|install_windows"
  "check|check_dlls"
)

build_x264() {
  cd "$work/x264"
  CC=$kCompiler ./configure --host=$kTriplet --cross-prefix=$kTriplet- --prefix="$(sysroot)" \
    --enable-static --disable-cli --disable-opencl --enable-pic
  make -j"$jobs"
  make install-lib-static
}

build_lame() {
  cd "$work/LAME"
  CC=$kCompiler ./configure --host=$kTriplet --prefix="$(sysroot)" \
    --enable-static --disable-shared --disable-frontend --disable-decoder --disable-gtktest
  make -j"$jobs"
  make install
}

# The stack protector and the checked memory functions would pull in libssp; Opus leaves the latter out only when the
# macro is set already.
build_opus() {
  cd "$work/Opus"
  CC=$kCompiler CFLAGS='-O2 -D_FORTIFY_SOURCE=0' ./configure --host=$kTriplet --prefix="$(sysroot)" \
    --enable-static --disable-shared --disable-doc --disable-extra-programs --disable-stack-protector
  make -j"$jobs"
  make install
}

# Headers and libraries of the machine that are the same for Windows. A folder with libz.a alone keeps the linker from
# taking the import library of zlib's DLL, which lies beside it in the system folder; the same holds for winpthread and libstdc++.
gather_system_parts() {
  local include
  include=$(pkg-config --variable=includedir ffnvcodec)
  cp -R "$include/ffnvcodec" "$(sysroot)/include/"
  printf '%s\n' "includedir=$(sysroot)/include" "Name: ffnvcodec" "Description: encoder headers" \
    "Version: $(pkg-config --modversion ffnvcodec)" "Cflags: -I\${includedir}" > "$(sysroot)/lib/pkgconfig/ffnvcodec.pc"
  cp /usr/$kTriplet/include/{zlib,zconf}.h "$(sysroot)/include/"
  cp /usr/$kTriplet/lib/{libz,libpthread,libwinpthread}.a "$($kCxxCompiler -print-file-name=libstdc++.a)" "$(sysroot)/lib/"
}

configure_ffmpeg() {
  gather_system_parts
  cd "$work/FFmpeg"
  # Today's windres takes --preprocessor as a program's bare name and refuses the arguments that stand in it.
  sed -i 's/ --preprocessor "[^"]*"//' ffbuild/common.mak
  PKG_CONFIG_LIBDIR="$(sysroot)/lib/pkgconfig" ./configure "${ffmpeg_common_options[@]}" \
    --enable-cross-compile --target-os=mingw32 --arch=x86_64 --cross-prefix=$kTriplet- --cc=$kCompiler \
    --pkg-config=pkg-config --pkg-config-flags=--static \
    --extra-cflags=-I../sysroot/include --extra-ldflags='-L../sysroot/lib -static-libgcc' \
    --enable-w32threads --enable-mediafoundation --enable-encoder=h264_mf
  check_components
  grep '^#define CONFIG_H264_MF_ENCODER 1$' config.h
}

compile_ffmpeg() {
  make -C "$work/FFmpeg" -j"$jobs"
}

# Import libraries belong with the other link-time files.
install_windows() {
  ffmpeg_install
  rm -f "$stage"/bin/*.lib
}

# A DLL that asks for another one than its sisters and Windows' own would not load on a machine without a compiler.
check_dlls() {
  local dll imports
  for dll in avformat-58 avcodec-58 avutil-56 swresample-3 swscale-5; do
    imports=$($kTriplet-objdump -p "$stage/bin/$dll.dll" | sed -n 's/^\s*DLL Name: //p')
    echo "$dll needs:" $imports
    if grep -i -E 'libgcc|pthread|libssp|libstdc|zlib|x264|lame|opus|srt|mbed' <<< "$imports"; then return 1; fi
    test -f "$stage/lib/lib${dll%-*}.dll.a"
  done
}
