# shellcheck shell=bash disable=SC2154  # variables go from file to file, -e is on
# Encrypted transport for FFmpeg: mbedTLS (rtmps://, and the keys of SRT) and SRT itself, static libraries that go into
# libavformat, so that nothing more is needed at run time. Sourced by build.sh; part of the recipe hash.
#
# The system's recipe sets network_make_options (mbedTLS), network_cmake_options (SRT) and network_libraries, what SRT
# needs from the system.

# Two outputs may share the random generator and the cipher's tables: the first gets its lock, the tables become
# constants. TLS before 1.2 is left out (RFC 8996).
build_mbedtls() {
  cd "$work/mbedTLS"
  sed -i -E -e 's!^//(#define MBEDTLS_(THREADING_C|THREADING_PTHREAD|AES_ROM_TABLES))$!\1!' \
    -e 's!^#define MBEDTLS_SSL_(PROTO_TLS1|PROTO_TLS1_1|CBC_RECORD_SPLITTING)$!//&!' include/mbedtls/config.h
  [[ $(grep -c -E '^#define MBEDTLS_(THREADING_C|THREADING_PTHREAD|AES_ROM_TABLES)$' include/mbedtls/config.h) -eq 3 ]]
  [[ $(grep -c -E '^#define MBEDTLS_SSL_PROTO_TLS' include/mbedtls/config.h) -eq 1 ]]
  make -C library -j"$jobs" "${network_make_options[@]}" static
  mkdir -p "$(sysroot)/include" "$(sysroot)/lib"
  cp -R include/mbedtls include/psa "$(sysroot)/include/"
  cp library/lib{mbedtls,mbedx509,mbedcrypto}.a "$(sysroot)/lib/"
}

# Without its log, which would go to the host's standard error. The C compiler links FFmpeg, so the libraries below SRT
# are named in its pkg-config file, and not as private ones: everybody who links it links it statically.
build_srt() {
  cmake -S "$work/SRT" -B "$work/SRT/build" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$(sysroot)" \
    -DCMAKE_INSTALL_LIBDIR=lib -DENABLE_SHARED=OFF -DENABLE_APPS=OFF -DENABLE_LOGGING=OFF -DENABLE_STDCXX_SYNC=ON \
    -DUSE_ENCLIB=mbedtls -DCMAKE_PREFIX_PATH="$(sysroot)" "${network_cmake_options[@]}"
  cmake --build "$work/SRT/build" -j"$jobs"
  cmake --install "$work/SRT/build"
  sed -i -E -e "s|^(Libs: .*)|\1 -lmbedcrypto $network_libraries|" -e '/^(Libs|Requires).private:/d' "$(sysroot)/lib/pkgconfig/srt.pc"
  rm "$(sysroot)/lib/pkgconfig/haisrt.pc"
}
