# Makes the binary package with cpack and checks its name and contents.
#   -DCPACK=program -DBUILD=folder -DWORK=folder -DGENERATOR=TGZ|ZIP -DFILE=name -DEXPECTED=a|b|...
#   -DABSENT=regex
file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${CPACK} -G ${GENERATOR} --config ${BUILD}/CPackConfig.cmake -B ${WORK}
  RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "cpack failed:\n${output}")
endif()
if(NOT EXISTS ${WORK}/${FILE})
  file(GLOB made RELATIVE ${WORK} ${WORK}/*.*)
  message(FATAL_ERROR "cpack did not make ${FILE}; it made: ${made}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E tar tf ${WORK}/${FILE}
  RESULT_VARIABLE result OUTPUT_VARIABLE listing ERROR_VARIABLE errors)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "cannot list ${FILE}:\n${errors}")
endif()
string(REPLACE "|" ";" expected "${EXPECTED}")
foreach(entry ${expected})
  string(FIND "${listing}" "${entry}\n" at)
  if(at EQUAL -1)
    message(SEND_ERROR "${FILE} lacks ${entry}; it holds:\n${listing}")
  endif()
endforeach()
if(listing MATCHES "${ABSENT}")
  message(SEND_ERROR "${FILE} holds a file it should not (${ABSENT}):\n${listing}")
endif()
