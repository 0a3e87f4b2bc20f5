# Checks a TeliCamApi64.dll's export table: exactly the ordinals of the SDK's list of
# operations (less those in LACKING) and not a single exported name.
#   cmake -DOBJDUMP=... -DDLL=... -DTABLE=sdk/SdkOperations.h [-DLACKING=233;...] -P CheckOrdinalExports.cmake

cmake_minimum_required(VERSION 3.25)

file(READ "${TABLE}" table)
string(REGEX MATCHALL "X\\(([0-9]+), sdk[A-Za-z]+," entries "${table}")
set(expected "")
foreach(entry IN LISTS entries)
  string(REGEX REPLACE "X\\(([0-9]+),.*" "\\1" ordinal "${entry}")
  if(NOT ordinal IN_LIST LACKING)
    list(APPEND expected ${ordinal})
  endif()
endforeach()
list(LENGTH entries tableSize)
if(NOT tableSize EQUAL 37)
  message(FATAL_ERROR "read ${tableSize} entries from ${TABLE}, expected 37")
endif()

execute_process(COMMAND "${OBJDUMP}" -p "${DLL}" OUTPUT_VARIABLE dump RESULT_VARIABLE failed)
if(failed)
  message(FATAL_ERROR "${OBJDUMP} -p ${DLL} failed")
endif()

# "[  232] +base[ 233] 2150 Export RVA": one line per exported ordinal.
string(REGEX MATCHALL "\\+base\\[ *[0-9]+\\] [0-9a-f]+ Export RVA" rows "${dump}")
set(exported "")
foreach(row IN LISTS rows)
  string(REGEX REPLACE "\\+base\\[ *([0-9]+)\\].*" "\\1" ordinal "${row}")
  list(APPEND exported ${ordinal})
endforeach()
list(SORT expected COMPARE NATURAL)
list(SORT exported COMPARE NATURAL)
if(NOT exported STREQUAL expected)
  message(FATAL_ERROR "${DLL} exports ordinals\n  ${exported}\nexpected\n  ${expected}")
endif()

# Names would follow the "[Ordinal/Name Pointer] Table" heading as "[  n] name".
string(REGEX MATCH "\\[Name Pointer/Ordinal\\] Table[ \t]+([0-9a-fA-F]+)" names "${dump}")
if(NOT names OR NOT CMAKE_MATCH_1 MATCHES "^0+$")
  message(FATAL_ERROR "${DLL} exports names: ${names}")
endif()
string(REGEX MATCH "\\[Ordinal/Name Pointer\\] Table\n[ \t]*\\[ *[0-9]+\\] [A-Za-z_]" namedRow "${dump}")
if(namedRow)
  message(FATAL_ERROR "${DLL} lists an exported name: ${namedRow}")
endif()
list(LENGTH exported count)
message(STATUS "${DLL}: ${count} ordinals, no names")
