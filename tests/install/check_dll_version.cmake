# The DLL carries a version resource (RT_VERSION, type 16) whose fixed file version and strings
# are the project's version, and whose product name is VeltJS.
#   -DOBJDUMP=program -DDLL=file -DVERSION=x.y.z
execute_process(COMMAND ${OBJDUMP} -p ${DLL} OUTPUT_VARIABLE dump RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "objdump failed on ${DLL}")
endif()
# The resource directory's type table lists the version resource by its numeric type.
if(NOT dump MATCHES "The \\.rsrc Resource Directory section:\n[^\n]*Type Table[^\n]*\n[^\n]*Entry: ID: 0x000010,")
  message(FATAL_ERROR "no RT_VERSION (16) entry in the resource directory of ${DLL}:\n${dump}")
endif()

string(REGEX MATCH "^([0-9]+)\\.([0-9]+)\\.([0-9]+)$" matched "${VERSION}")
# Little-endian 32-bit word as hexadecimal bytes.
function(word_hex value out)
  math(EXPR b0 "${value} & 255" OUTPUT_FORMAT HEXADECIMAL)
  math(EXPR b1 "(${value} >> 8) & 255" OUTPUT_FORMAT HEXADECIMAL)
  math(EXPR b2 "(${value} >> 16) & 255" OUTPUT_FORMAT HEXADECIMAL)
  math(EXPR b3 "(${value} >> 24) & 255" OUTPUT_FORMAT HEXADECIMAL)
  set(hex "")
  foreach(b ${b0} ${b1} ${b2} ${b3})
    string(REPLACE "0x" "" b ${b})
    string(LENGTH ${b} length)
    if(length EQUAL 1)
      set(b "0${b}")
    endif()
    string(APPEND hex ${b})
  endforeach()
  set(${out} ${hex} PARENT_SCOPE)
endfunction()
# UTF-16LE text as hexadecimal bytes.
function(utf16_hex text out)
  string(HEX "${text}" ascii)
  string(REGEX REPLACE "(..)" "\\100" wide "${ascii}")
  set(${out} ${wide} PARENT_SCOPE)
endfunction()

file(READ ${DLL} bytes HEX)
# VS_FIXEDFILEINFO: signature 0xFEEF04BD, structure version, then the file version (MS, LS) and
# the product version (MS, LS).
math(EXPR ms "(${CMAKE_MATCH_1} << 16) | ${CMAKE_MATCH_2}")
math(EXPR ls "${CMAKE_MATCH_3} << 16")
word_hex(${ms} ms_hex)
word_hex(${ls} ls_hex)
set(fixed "bd04effe........${ms_hex}${ls_hex}${ms_hex}${ls_hex}")
if(NOT bytes MATCHES "${fixed}")
  message(FATAL_ERROR "no fixed file information for ${VERSION} (${fixed}) in ${DLL}")
endif()
# String table entries: key, its terminator, padding, then the value.
foreach(pair "FileVersion=${VERSION}" "ProductVersion=${VERSION}" "ProductName=VeltJS" "OriginalFilename=VeltJS.dll")
  string(REPLACE "=" ";" pair ${pair})
  list(GET pair 0 key)
  list(GET pair 1 value)
  utf16_hex(${key} key_hex)
  utf16_hex(${value} value_hex)
  if(NOT bytes MATCHES "${key_hex}0000(0000)?${value_hex}0000")
    message(FATAL_ERROR "the version resource lacks ${key} = ${value}")
  endif()
endforeach()
