# Header-only libraries for tools and tests: CLI11 and nlohmann-json, as packaged by the system.
# A cross build cannot put the system's include folder on its path (the C library's headers live
# there too), so just these two folders are copied.
set(zeva_headers ${CMAKE_BINARY_DIR}/third_party)
foreach(name IN ITEMS CLI nlohmann)
  if(NOT EXISTS /usr/include/${name})
    message(FATAL_ERROR "The headers of ${name} are missing: run scripts/packages.sh, or install "
      "libcli11-dev and nlohmann-json3-dev.")
  endif()
  file(COPY /usr/include/${name} DESTINATION ${zeva_headers})
endforeach()
add_library(zeva_cli11 INTERFACE)
target_include_directories(zeva_cli11 SYSTEM INTERFACE ${zeva_headers})
add_library(zeva_json INTERFACE)
target_include_directories(zeva_json SYSTEM INTERFACE ${zeva_headers})
