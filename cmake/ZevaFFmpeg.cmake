# FFmpeg 4.x as the target `zeva_ffmpeg`.
# -DFFMPEG_ROOT=<prefix> names a build of the host's own; else the one that deps/build.sh put into
# its cache is taken, else what pkg-config knows.
set(FFMPEG_ROOT "" CACHE PATH "Prefix of an FFmpeg 4.x build (libavformat 58)")
set(zeva_av_libs avformat avcodec swresample swscale avutil)

if(WIN32)
  set(zeva_deps_system windows)
else()
  set(zeva_deps_system linux)
endif()
set(zeva_ffmpeg_root "${FFMPEG_ROOT}")
if(NOT zeva_ffmpeg_root)
  execute_process(COMMAND ${CMAKE_SOURCE_DIR}/deps/build.sh --prefix ${zeva_deps_system}
    OUTPUT_VARIABLE zeva_ffmpeg_root OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(NOT EXISTS "${zeva_ffmpeg_root}/include/libavformat/version.h")
    set(zeva_ffmpeg_root "")
  endif()
endif()

add_library(zeva_ffmpeg INTERFACE)
if(zeva_ffmpeg_root)
  set(zeva_ffmpeg_include "${zeva_ffmpeg_root}/include")
else()
  find_package(PkgConfig QUIET)
  if(PkgConfig_FOUND AND NOT WIN32)
    pkg_check_modules(ZEVA_AV QUIET IMPORTED_TARGET libavformat libavcodec libswresample libswscale
      libavutil)
    if(ZEVA_AV_FOUND)
      pkg_get_variable(zeva_ffmpeg_include libavformat includedir)
    endif()
  endif()
endif()

set(zeva_avformat_major none)
if(EXISTS "${zeva_ffmpeg_include}/libavformat/version.h")
  file(STRINGS "${zeva_ffmpeg_include}/libavformat/version.h" zeva_version_line
    REGEX "define LIBAVFORMAT_VERSION_MAJOR +[0-9]+")
  if(zeva_version_line MATCHES "([0-9]+)$")
    set(zeva_avformat_major ${CMAKE_MATCH_1})
  elseif(EXISTS "${zeva_ffmpeg_include}/libavformat/version_major.h")
    set(zeva_avformat_major "59 or newer")
  endif()
endif()
if(NOT zeva_avformat_major STREQUAL "58")
  message(FATAL_ERROR "ZEVALib needs FFmpeg 4.x (libavformat 58), found libavformat "
    "${zeva_avformat_major}: run deps/build.sh ${zeva_deps_system} or give -DFFMPEG_ROOT=<prefix>.")
endif()

if(zeva_ffmpeg_root)
  foreach(lib IN LISTS zeva_av_libs)
    add_library(zeva_${lib} SHARED IMPORTED)
    if(WIN32)
      file(GLOB dll "${zeva_ffmpeg_root}/bin/${lib}-*.dll")
      set_target_properties(zeva_${lib} PROPERTIES IMPORTED_LOCATION "${dll}"
        IMPORTED_IMPLIB "${zeva_ffmpeg_root}/lib/lib${lib}.dll.a")
    else()
      set_target_properties(zeva_${lib} PROPERTIES
        IMPORTED_LOCATION "${zeva_ffmpeg_root}/lib/lib${lib}.so")
    endif()
    target_link_libraries(zeva_ffmpeg INTERFACE zeva_${lib})
  endforeach()
  target_include_directories(zeva_ffmpeg SYSTEM INTERFACE "${zeva_ffmpeg_include}")
else()
  target_link_libraries(zeva_ffmpeg INTERFACE PkgConfig::ZEVA_AV)
endif()
message(STATUS "FFmpeg 4.x: ${zeva_ffmpeg_include}")

# The DLLs lie beside every Windows program that needs them.
if(WIN32)
  file(GLOB zeva_ffmpeg_dlls "${zeva_ffmpeg_root}/bin/*.dll")
  foreach(dll IN LISTS zeva_ffmpeg_dlls)
    file(COPY "${dll}" DESTINATION ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
  endforeach()
endif()
