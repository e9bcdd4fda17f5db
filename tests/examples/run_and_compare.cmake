# Runs a program and compares its exit status, standard output and standard error with what is
# expected; line endings are compared as line feeds (a Windows program writes CR LF).
#   -DCOMMAND=program|argument|...   the command, "|" between its words
#   -DWORKING_DIRECTORY=folder       where it runs
#   -DEXPECTED_STATUS=n              its exit status
#   -DEXPECTED_STDOUT=file           its standard output (empty when not given)
#   -DEXPECTED_STDERR=file           its standard error (empty when not given)
string(REPLACE "|" ";" command "${COMMAND}")
if(NOT WORKING_DIRECTORY)
  set(WORKING_DIRECTORY .)
endif()
execute_process(COMMAND ${command}
  WORKING_DIRECTORY ${WORKING_DIRECTORY}
  RESULT_VARIABLE status
  OUTPUT_VARIABLE stdout
  ERROR_VARIABLE stderr)

function(expect_text what got expected_file)
  set(expected "")
  if(expected_file)
    file(READ ${expected_file} expected)
  endif()
  string(REPLACE "\r\n" "\n" got "${got}")
  string(REPLACE "\r\n" "\n" expected "${expected}")
  if(NOT got STREQUAL expected)
    message(SEND_ERROR "${what} differs from '${expected_file}'; it was:\n${got}")
  endif()
endfunction()

if(NOT "${status}" STREQUAL "${EXPECTED_STATUS}")
  message(SEND_ERROR "exit status ${status}, expected ${EXPECTED_STATUS}\nstderr:\n${stderr}")
endif()
expect_text(stdout "${stdout}" "${EXPECTED_STDOUT}")
expect_text(stderr "${stderr}" "${EXPECTED_STDERR}")
