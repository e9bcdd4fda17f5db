# utf8proc for the Windows build: compiled statically from Debian's source package.
set(VELTJS_UTF8PROC_SOURCE ${PROJECT_BINARY_DIR}/third_party/utf8proc)
if(NOT EXISTS ${VELTJS_UTF8PROC_SOURCE}/utf8proc.c)
  execute_process(
    COMMAND ${PROJECT_SOURCE_DIR}/scripts/fetch-utf8proc-source.sh ${VELTJS_UTF8PROC_SOURCE}
    RESULT_VARIABLE fetch_result)
  if(NOT fetch_result EQUAL 0)
    message(FATAL_ERROR "could not fetch the utf8proc source package")
  endif()
endif()
add_library(utf8proc_static STATIC ${VELTJS_UTF8PROC_SOURCE}/utf8proc.c)
target_include_directories(utf8proc_static SYSTEM PUBLIC ${VELTJS_UTF8PROC_SOURCE})
target_compile_definitions(utf8proc_static PUBLIC UTF8PROC_STATIC)
target_compile_options(utf8proc_static PRIVATE -w)
set_target_properties(utf8proc_static PROPERTIES POSITION_INDEPENDENT_CODE ON)
add_library(veltjs::utf8proc ALIAS utf8proc_static)
