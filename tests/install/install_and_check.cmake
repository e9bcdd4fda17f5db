# Installs the build tree into a fresh prefix and checks what lands there.
#   -DBUILD=folder -DPREFIX=folder -DVERSION=x.y.z -DPLATFORM=linux|windows [-DREADELF=program]
file(REMOVE_RECURSE ${PREFIX})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${PREFIX}
  RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "cmake --install failed:\n${output}")
endif()

string(REGEX MATCH "^([0-9]+)\\.([0-9]+)\\.([0-9]+)$" matched "${VERSION}")
set(major ${CMAKE_MATCH_1})
set(minor ${CMAKE_MATCH_2})
set(patch ${CMAKE_MATCH_3})

if(PLATFORM STREQUAL "windows")
  set(expected
    bin/VeltJS.dll bin/veltjs.exe lib/VeltJS.dll.a include/veltjs.h include/veltjs_version.h
    lib/pkgconfig/veltjs.pc lib/cmake/VeltJS/VeltJSConfig.cmake
    lib/cmake/VeltJS/VeltJSConfigVersion.cmake lib/cmake/VeltJS/VeltJSTargets.cmake)
else()
  set(expected
    lib/libveltjs.so.${VERSION} bin/veltjs include/veltjs.h include/veltjs_version.h
    lib/pkgconfig/veltjs.pc lib/cmake/VeltJS/VeltJSConfig.cmake
    lib/cmake/VeltJS/VeltJSConfigVersion.cmake lib/cmake/VeltJS/VeltJSTargets.cmake)
endif()
foreach(file ${expected})
  if(NOT EXISTS ${PREFIX}/${file} OR IS_SYMLINK ${PREFIX}/${file})
    message(SEND_ERROR "not installed as a file: ${file}")
  endif()
endforeach()

# The static archive is for the project's own tools and tests only.
file(GLOB_RECURSE archives RELATIVE ${PREFIX} ${PREFIX}/*.a)
list(FILTER archives EXCLUDE REGEX "\\.dll\\.a$")
if(archives)
  message(SEND_ERROR "static archives were installed: ${archives}")
endif()

if(NOT PLATFORM STREQUAL "windows")
  # libveltjs.so -> libveltjs.so.MAJOR -> libveltjs.so.MAJOR.MINOR.PATCH, SONAME libveltjs.so.MAJOR.
  foreach(link_and_target "libveltjs.so=libveltjs.so.${major}" "libveltjs.so.${major}=libveltjs.so.${VERSION}")
    string(REPLACE "=" ";" pair ${link_and_target})
    list(GET pair 0 link)
    list(GET pair 1 target)
    file(READ_SYMLINK ${PREFIX}/lib/${link} points_to)
    if(NOT IS_SYMLINK ${PREFIX}/lib/${link} OR NOT points_to STREQUAL target)
      message(SEND_ERROR "lib/${link} should be a link to ${target}, is '${points_to}'")
    endif()
  endforeach()
  execute_process(COMMAND ${READELF} -d ${PREFIX}/lib/libveltjs.so.${VERSION} OUTPUT_VARIABLE dynamic)
  string(REGEX MATCH "Library soname: \\[([^]]*)\\]" matched "${dynamic}")
  if(NOT CMAKE_MATCH_1 STREQUAL "libveltjs.so.${major}")
    message(SEND_ERROR "SONAME is '${CMAKE_MATCH_1}', expected libveltjs.so.${major}")
  endif()
endif()

# The version macros of the installed header.
file(READ ${PREFIX}/include/veltjs_version.h header)
foreach(macro "MAJOR ${major}" "MINOR ${minor}" "PATCH ${patch}" "STRING \"${VERSION}\"")
  if(NOT header MATCHES "#define VELTJS_VERSION_${macro}\n")
    message(SEND_ERROR "veltjs_version.h lacks VELTJS_VERSION_${macro}:\n${header}")
  endif()
endforeach()
file(READ ${PREFIX}/include/veltjs.h header)
if(NOT header MATCHES "#include \"veltjs_version.h\"")
  message(SEND_ERROR "veltjs.h does not include veltjs_version.h")
endif()

# The package version file accepts this version and later minor versions of the same major.
foreach(case "${VERSION}=TRUE" "${major}.${minor}=TRUE" "${major}.0.0=TRUE" "${major}.9999=FALSE" "9999.0=FALSE")
  string(REPLACE "=" ";" pair ${case})
  list(GET pair 0 request)
  list(GET pair 1 compatible)
  set(PACKAGE_FIND_VERSION ${request})
  string(REGEX MATCH "^([0-9]+)" PACKAGE_FIND_VERSION_MAJOR ${request})
  unset(PACKAGE_VERSION_COMPATIBLE)
  include(${PREFIX}/lib/cmake/VeltJS/VeltJSConfigVersion.cmake)
  if(NOT PACKAGE_VERSION STREQUAL VERSION)
    message(SEND_ERROR "VeltJSConfigVersion.cmake gives version ${PACKAGE_VERSION}")
  endif()
  if(NOT "${PACKAGE_VERSION_COMPATIBLE}" STREQUAL "${compatible}")
    message(SEND_ERROR "a request for ${request}: compatible '${PACKAGE_VERSION_COMPATIBLE}', expected ${compatible}")
  endif()
endforeach()
