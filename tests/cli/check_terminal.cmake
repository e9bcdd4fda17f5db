# What the tool does when standard error is a terminal: the progress bar and automatic colour.
# Runs the tool on a pseudo-terminal with script(1) from util-linux and looks at what reached the
# terminal. Linux only: under wine a pseudo-terminal is no Windows console.
#
#   cmake -DTOOL=... -DSCRIPT=/usr/bin/script -DDATA=dir -DWORK=dir -DCASE=name -P check_terminal.cmake
#
# The bar appears only after a second. So that a case with a slow run does not depend on how fast
# the machine compiles, the run is made slow by standard input: the second of three inputs is -,
# and its text arrives two seconds late. That such a run really took over a second is checked
# too, else a missing bar would prove nothing.

cmake_minimum_required(VERSION 3.25)

foreach(required TOOL SCRIPT DATA WORK CASE)
  if(NOT DEFINED ${required})
    message(FATAL_ERROR "check_terminal.cmake needs -D${required}=...")
  endif()
endforeach()

string(ASCII 27 escape)
set(clear_line "${escape}[K")
set(stdout_file ${WORK}/terminal_${CASE}.stdout)
set(stderr_file ${WORK}/terminal_${CASE}.stderr)
file(MAKE_DIRECTORY ${WORK})
file(REMOVE ${stdout_file} ${stderr_file})

set(slow_run "(sleep 2; cat hello.js) | '${TOOL}' hello.js - second.js")
set(expected_status 0)
set(slow FALSE)
if(CASE STREQUAL "ProgressBarAfterASecond")
  set(command "${slow_run}")
  set(slow TRUE)
elseif(CASE STREQUAL "QuietShowsNoProgressBar")
  set(command "${slow_run} -q")
  set(slow TRUE)
elseif(CASE STREQUAL "NoProgressBarWhenStandardErrorIsAFile")
  set(command "${slow_run} 2>'${stderr_file}'")
  set(slow TRUE)
elseif(CASE STREQUAL "NoProgressBarWithinASecond")
  set(command "'${TOOL}' hello.js second.js")
elseif(CASE STREQUAL "ColourAuto")
  set(command "'${TOOL}' syntax_error.js")
  set(expected_status 1)
elseif(CASE STREQUAL "ColourNever")
  set(command "'${TOOL}' --color=never syntax_error.js")
  set(expected_status 1)
elseif(CASE STREQUAL "ColourAutoWithNoColor")
  set(command "NO_COLOR=1 '${TOOL}' syntax_error.js")
  set(expected_status 1)
else()
  message(FATAL_ERROR "unknown case ${CASE}")
endif()

# Only standard error goes to the terminal; standard output is kept to see that the run worked.
string(APPEND command " >'${stdout_file}'")
# script runs the command with $SHELL; colour must not be switched off from outside.
set(ENV{SHELL} /bin/sh)
unset(ENV{NO_COLOR})
string(TIMESTAMP started "%s" UTC)
execute_process(COMMAND ${SCRIPT} -qfec "${command}" /dev/null
                WORKING_DIRECTORY ${DATA}
                INPUT_FILE /dev/null
                OUTPUT_VARIABLE terminal
                RESULT_VARIABLE status)
string(TIMESTAMP ended "%s" UTC)

set(failures)
if(NOT "${status}" STREQUAL "${expected_status}")
  list(APPEND failures "exit status ${status}, expected ${expected_status}")
endif()
if(slow)
  math(EXPR seconds "${ended} - ${started}")
  if(seconds LESS 2)
    list(APPEND failures "the run took ${seconds} s, not the two seconds standard input waits")
  endif()
endif()
file(READ ${stdout_file} listing)
if(expected_status EQUAL 0 AND NOT listing MATCHES "== second.js\n")
  list(APPEND failures "the listing on standard output is incomplete")
endif()

# A bar reads "\r[=====>    ] 2/3 scripts" and ends by clearing the rest of the line.
set(bar_pattern "\r\\[[=> ]+\\] [0-9]/[0-9] scripts${escape}\\[K")
# expect_no_bar(VARIABLE WHERE): no bar and no bar's count in the text of VARIABLE.
function(expect_no_bar variable where)
  string(FIND "${${variable}}" "scripts${clear_line}" at)
  if(NOT at EQUAL -1 OR "${${variable}}" MATCHES "/[0-9] scripts")
    list(APPEND failures "a progress bar on ${where}")
    set(failures "${failures}" PARENT_SCOPE)
  endif()
endfunction()
# expect_text(VARIABLE WANTED WHERE): the text of VARIABLE holds WANTED.
function(expect_text variable wanted where)
  string(FIND "${${variable}}" "${wanted}" at)
  if(at EQUAL -1)
    list(APPEND failures "no \"${wanted}\" on ${where}")
    set(failures "${failures}" PARENT_SCOPE)
  endif()
endfunction()
set(colour_error "${escape}[1;31merror:")

if(CASE STREQUAL "ProgressBarAfterASecond")
  if(NOT terminal MATCHES "${bar_pattern}")
    list(APPEND failures "no progress bar on the terminal")
  endif()
  # The bar's line is cleared before the summary is written over it.
  expect_text(terminal "${clear_line}\r${clear_line}compiled 3 scripts, " "the terminal")
elseif(CASE STREQUAL "QuietShowsNoProgressBar")
  # Neither bar nor summary: nothing at all.
  expect_no_bar(terminal "the terminal")
  if(NOT terminal STREQUAL "")
    list(APPEND failures "the terminal is not empty")
  endif()
elseif(CASE STREQUAL "NoProgressBarWhenStandardErrorIsAFile")
  file(READ ${stderr_file} errors)
  expect_text(errors "compiled 3 scripts, " "standard error")
  expect_no_bar(errors "standard error")
  expect_no_bar(terminal "the terminal")
elseif(CASE STREQUAL "NoProgressBarWithinASecond")
  expect_text(terminal "compiled 2 scripts, " "the terminal")
  expect_no_bar(terminal "the terminal")
elseif(CASE STREQUAL "ColourAuto")
  expect_text(terminal "${colour_error}" "the terminal")
else()
  # --color=never and NO_COLOR: the same message, without a single escape sequence.
  expect_text(terminal "syntax_error.js:3:17: error: Got '{'" "the terminal")
  if(terminal MATCHES "${escape}")
    list(APPEND failures "escape sequences on the terminal")
  endif()
endif()

if(failures)
  string(REPLACE ";" "\n" failures "${failures}")
  string(REPLACE "${escape}" "<ESC>" shown "${terminal}")
  message(FATAL_ERROR "${failures}\n--- the terminal showed:\n${shown}")
endif()
