# A project's listing grows linearly with the project: each script's output holds its own
# code, names and records, never the whole name table again. Compiles projects of N, 2N and 3N
# scripts of the same shape (names of fixed width) and requires the same growth from N to 2N as
# from 2N to 3N.
#
#   cmake -DTOOL=... [-DEMULATOR=...] -DWORK=dir [-DCOUNT=N] -P check_linear.cmake

cmake_minimum_required(VERSION 3.25)

if(NOT COUNT)
  set(COUNT 40)
endif()
set(sizes)
foreach(multiple 1 2 3)
  math(EXPR scripts "${COUNT} * ${multiple}")
  # Folder names of one width, so that every "== folder/file" line is as long in each run.
  set(project ${WORK}/linear_${multiple})
  file(REMOVE_RECURSE ${project})
  file(MAKE_DIRECTORY ${project})
  math(EXPR last "${scripts} - 1")
  foreach(index RANGE ${last})
    string(LENGTH "${index}" digits)
    math(EXPR padding "4 - ${digits}")
    string(REPEAT "0" ${padding} zeros)
    set(id "${zeros}${index}")
    file(WRITE ${project}/s${id}.js
         "var v${id} = 7;\nfunction f${id}(a) { return v${id} + a + \"t${id}\"; }\nf${id}(v${id});\n")
  endforeach()
  execute_process(COMMAND ${EMULATOR} ${TOOL} -q linear_${multiple}
                  WORKING_DIRECTORY ${WORK}
                  OUTPUT_FILE ${WORK}/linear_${multiple}.stdout
                  RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "veltjs exited with ${status} on ${scripts} scripts")
  endif()
  file(SIZE ${WORK}/linear_${multiple}.stdout size)
  list(APPEND sizes ${size})
endforeach()
list(GET sizes 0 first)
list(GET sizes 1 second)
list(GET sizes 2 third)
math(EXPR growth1 "${second} - ${first}")
math(EXPR growth2 "${third} - ${second}")
message(STATUS "output bytes for ${COUNT}, 2x and 3x scripts: ${first} ${second} ${third}")
if(growth1 LESS_EQUAL 0 OR NOT growth1 EQUAL growth2)
  message(FATAL_ERROR "output is not linear in the number of scripts: ${first}, ${second}, ${third} bytes")
endif()
