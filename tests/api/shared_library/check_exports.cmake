# Fails unless the shared library exports exactly the names listed in
# EXPECTED (one a line), read from its dynamic symbol table (nm -D) or, for a
# DLL, its export table (objdump -p).
#   cmake -DLIBRARY=... -DEXPECTED=... -DKIND=elf|pe -DTOOL=nm|objdump -P check_exports.cmake
file(STRINGS "${EXPECTED}" expected REGEX "[^ \t]")
list(TRANSFORM expected STRIP)
list(SORT expected)

if(KIND STREQUAL "elf")
  execute_process(COMMAND "${TOOL}" -D --defined-only "${LIBRARY}"
                  OUTPUT_VARIABLE table RESULT_VARIABLE rc ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${TOOL} failed on ${LIBRARY}: ${err}")
  endif()
  # "address type name"; undefined references were left out by --defined-only.
  string(REGEX MATCHALL "[0-9a-fA-F]+ [A-Za-z] [^\n]+" lines "${table}")
  set(actual)
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "^[0-9a-fA-F]+ [A-Za-z] " "" name "${line}")
    list(APPEND actual "${name}")
  endforeach()
else()
  execute_process(COMMAND "${TOOL}" -p "${LIBRARY}"
                  OUTPUT_VARIABLE table RESULT_VARIABLE rc ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${TOOL} failed on ${LIBRARY}: ${err}")
  endif()
  # The "[Ordinal/Name Pointer] Table" lists every exported name as "[ n] name".
  string(FIND "${table}" "[Ordinal/Name Pointer] Table" start)
  if(start EQUAL -1)
    message(FATAL_ERROR "${LIBRARY} has no export table")
  endif()
  string(SUBSTRING "${table}" ${start} -1 table)
  string(REGEX MATCHALL "\n\t\\[ *[0-9]+\\] [^\n]+" lines "${table}")
  set(actual)
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "^\n\t\\[ *[0-9]+\\] " "" name "${line}")
    list(APPEND actual "${name}")
  endforeach()
endif()
list(SORT actual)

set(unexpected ${actual})
list(REMOVE_ITEM unexpected ${expected})
set(missing ${expected})
list(REMOVE_ITEM missing ${actual})
list(LENGTH actual count)
if(unexpected OR missing)
  list(JOIN unexpected "\n  " unexpected)
  list(JOIN missing "\n  " missing)
  message(FATAL_ERROR "${LIBRARY} exports differ from ${EXPECTED}\n"
                      "exported but not listed:\n  ${unexpected}\nlisted but not exported:\n  ${missing}")
endif()
message(STATUS "${count} exports, as listed")
