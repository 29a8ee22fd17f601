# Flags of all our own code, as the target `zeva_flags`.
add_library(zeva_flags INTERFACE)
# Log lines carry paths relative to the source tree, never those of the build machine. A compiler cache hands
# the compiler paths relative to the build folder.
file(RELATIVE_PATH zeva_source_from_build ${CMAKE_BINARY_DIR} ${CMAKE_SOURCE_DIR})
target_compile_options(zeva_flags INTERFACE -Wall -Wextra -Werror
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}/= -ffile-prefix-map=${zeva_source_from_build}=)
if(WIN32)
  # printf formats as in the C standard on both systems; nothing of windows.h that clashes.
  target_compile_definitions(zeva_flags INTERFACE __USE_MINGW_ANSI_STDIO=1 NOMINMAX
    WIN32_LEAN_AND_MEAN UNICODE _WIN32_WINNT=0x0601)
  # Hosts need no compiler runtime beside the library.
  target_link_options(zeva_flags INTERFACE -static)
  target_link_libraries(zeva_flags INTERFACE ws2_32)  # the names of servers
endif()
if(ZEVA_SANITIZE)
  target_compile_options(zeva_flags INTERFACE -fsanitize=${ZEVA_SANITIZE}
    -fno-omit-frame-pointer -fno-sanitize-recover=all
    # GCC sees uninitialised values in the standard library's own code when it adds checks to it.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  target_link_options(zeva_flags INTERFACE -fsanitize=${ZEVA_SANITIZE})
endif()
if(ZEVA_FUZZ)
  # What guides the fuzzer; the fuzzer itself is linked into the targets.
  target_compile_options(zeva_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()
find_package(Threads REQUIRED)
target_link_libraries(zeva_flags INTERFACE Threads::Threads)
