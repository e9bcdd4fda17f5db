# Runs the veltjs tool once and compares its standard output, standard error and exit status
# with the expected files GOLDEN.stdout, GOLDEN.stderr and GOLDEN.status (and, with OUTPUT, the
# file it wrote with GOLDEN.out). Works the same for the Linux build and the Windows build under
# wine (EMULATOR), so both must produce the same bytes.
#
#   cmake -DTOOL=... [-DEMULATOR=...] -DDATA=dir -DWORK=dir -DGOLDEN=path/name -DVERSION=x.y.z
#         "-DARGS=arg|arg" [-DSTDIN=file] [-DOUTPUT=file] [-DUPDATE=1] -P run_golden.cmake
#
# ARGS are separated by '|' (a ';' would be split by add_test); @WORK@ in them stands for the
# scratch directory. What varies from run to run or machine to machine is masked before the
# comparison: the summary line's time ("..., 1.84 s" reads "..., <time>") and the scratch
# directory's path (reads @WORK@). @VERSION@ in an expected file stands for the tool's version,
# so that a new project version changes no expected file; in a written file (OUTPUT) it is
# replaced only when that file is text (holds no zero byte): a container does not carry the
# version. With UPDATE set (or the environment variable VELTJS_UPDATE_GOLDEN), the expected
# files are written instead of compared, with the version written back as @VERSION@.

cmake_minimum_required(VERSION 3.25)

foreach(required TOOL DATA WORK GOLDEN VERSION)
  if(NOT DEFINED ${required})
    message(FATAL_ERROR "run_golden.cmake needs -D${required}=...")
  endif()
endforeach()

file(MAKE_DIRECTORY ${WORK})
set(arguments)
string(REPLACE "|" ";" ARGS "${ARGS}")
foreach(argument IN LISTS ARGS)
  string(REPLACE "@WORK@" "${WORK}" argument "${argument}")
  list(APPEND arguments "${argument}")
endforeach()
if(OUTPUT)
  string(REPLACE "@WORK@" "${WORK}" OUTPUT "${OUTPUT}")
  file(REMOVE ${OUTPUT})
endif()

get_filename_component(name ${GOLDEN} NAME)
set(actual_stdout ${WORK}/${name}.stdout)
set(actual_stderr ${WORK}/${name}.stderr)
set(input_option)
if(STDIN)
  set(input_option INPUT_FILE ${STDIN})
endif()
execute_process(
  COMMAND ${EMULATOR} ${TOOL} ${arguments}
  WORKING_DIRECTORY ${DATA}
  ${input_option}
  OUTPUT_FILE ${actual_stdout}
  ERROR_FILE ${actual_stderr}
  RESULT_VARIABLE status)

file(READ ${actual_stdout} stdout_text)
file(READ ${actual_stderr} stderr_text)
string(REGEX REPLACE "(failed, )[0-9]+\\.[0-9][0-9] s\n" "\\1<time>\n" stderr_text "${stderr_text}")
# Paths into the scratch directory differ from machine to machine.
string(REPLACE "${WORK}" "@WORK@" stdout_text "${stdout_text}")
string(REPLACE "${WORK}" "@WORK@" stderr_text "${stderr_text}")
set(status_text "${status}\n")

# The bytes of `file` as pairs of hexadecimal digits, each pair followed by a space, so that a
# replacement can only match whole bytes.
function(read_spaced_hex file variable)
  file(READ ${file} hex HEX)
  string(REGEX REPLACE "(..)" "\\1 " hex "${hex}")
  set(${variable} "${hex}" PARENT_SCOPE)
endfunction()

function(spaced_hex text variable)
  string(HEX "${text}" hex)
  string(REGEX REPLACE "(..)" "\\1 " hex "${hex}")
  set(${variable} "${hex}" PARENT_SCOPE)
endfunction()

if(UPDATE OR DEFINED ENV{VELTJS_UPDATE_GOLDEN})
  foreach(stream stdout stderr)
    string(REPLACE "${VERSION}" "@VERSION@" text "${${stream}_text}")
    file(WRITE ${GOLDEN}.${stream} "${text}")
  endforeach()
  file(WRITE ${GOLDEN}.status "${status_text}")
  if(OUTPUT)
    read_spaced_hex(${OUTPUT} written)
    if(written MATCHES "(^| )00 ")
      file(COPY_FILE ${OUTPUT} ${GOLDEN}.out)
    else()
      file(READ ${OUTPUT} text)
      string(REPLACE "${VERSION}" "@VERSION@" text "${text}")
      file(WRITE ${GOLDEN}.out "${text}")
    endif()
  endif()
  return()
endif()

set(failures)
foreach(stream stdout stderr status)
  file(READ ${GOLDEN}.${stream} expected)
  string(REPLACE "@VERSION@" "${VERSION}" expected "${expected}")
  if(NOT "${${stream}_text}" STREQUAL "${expected}")
    file(WRITE ${WORK}/${name}.${stream}.actual "${${stream}_text}")
    list(APPEND failures "${stream} differs: expected ${GOLDEN}.${stream}, got ${WORK}/${name}.${stream}.actual")
  endif()
endforeach()
if(OUTPUT)
  if(NOT EXISTS ${OUTPUT})
    list(APPEND failures "no output file ${OUTPUT}")
  else()
    read_spaced_hex(${OUTPUT} written)
    read_spaced_hex(${GOLDEN}.out expected)
    if(NOT expected MATCHES "(^| )00 ")
      spaced_hex("@VERSION@" placeholder)
      spaced_hex("${VERSION}" version)
      string(REPLACE "${placeholder}" "${version}" expected "${expected}")
    endif()
    if(NOT written STREQUAL expected)
      list(APPEND failures "output file differs: expected ${GOLDEN}.out, got ${OUTPUT}")
    endif()
  endif()
endif()
if(failures)
  string(REPLACE ";" "\n" failures "${failures}")
  message(FATAL_ERROR "${failures}\n--- stderr was:\n${stderr_text}")
endif()
