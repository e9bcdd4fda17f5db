# Builds examples/host/host.c against the installed library with the flags pkg-config gives,
# as a Makefile or a shell build would: warnings are errors, the library is found at run time
# through an rpath to the installed library folder.
#   -DPREFIX=folder -DSOURCE=folder -DWORK=folder -DCC=compiler -DPKG_CONFIG=program
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
set(ENV{PKG_CONFIG_PATH} ${PREFIX}/lib/pkgconfig)
execute_process(COMMAND ${PKG_CONFIG} --cflags --libs veltjs
  RESULT_VARIABLE result OUTPUT_VARIABLE flags ERROR_VARIABLE errors OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "pkg-config --cflags --libs veltjs failed:\n${errors}")
endif()
execute_process(COMMAND ${PKG_CONFIG} --variable=libdir veltjs
  OUTPUT_VARIABLE libdir OUTPUT_STRIP_TRAILING_WHITESPACE)
get_filename_component(libdir ${libdir} REALPATH)
if(NOT libdir STREQUAL "${PREFIX}/lib")
  message(FATAL_ERROR "pkg-config's libdir is ${libdir}, expected ${PREFIX}/lib")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
execute_process(
  COMMAND ${CC} -std=c11 -Wall -Wextra -Werror -pedantic ${SOURCE}/examples/host/host.c ${flags}
          -Wl,-rpath,${libdir} -o ${WORK}/host
  RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "the example host did not build with pkg-config's flags:\n${output}")
endif()
