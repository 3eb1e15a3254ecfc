# Loads a copy of the shared library that sits in a folder of its own and
# checks what its load-time configuration did there:
#   - no .ini beside it: nothing is created;
#   - an .ini of the same base name whose [Logger] FileName= names a log file:
#     that file is created, empty, replacing any earlier one.
#   cmake -DLIBRARY=built-lib -DNAME=copy-name -DINI=ini-name -DLOADER=program
#         [-DEMULATOR=wine-runner;args] [-DWINDOWS_PATHS=ON] -DWORK=dir -P check_load_config.cmake
file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}/lib")
file(COPY_FILE "${LIBRARY}" "${WORK}/lib/${NAME}")
set(log "${WORK}/gps.log")
set(logName "${log}")
if(WINDOWS_PATHS)
  # Wine shows the host's root as drive Z:.
  string(REPLACE "/" "\\" logName "Z:${log}")
endif()

function(load_library what)
  execute_process(COMMAND ${EMULATOR} "${LOADER}" "${WORK}/lib/${NAME}"
                  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what}: loading ${NAME} failed (${rc}): ${out}")
  endif()
endfunction()

function(expect_folder what)
  file(GLOB present RELATIVE "${WORK}" "${WORK}/*" "${WORK}/lib/*")
  list(SORT present)
  set(want ${ARGN})
  list(SORT want)
  if(NOT present STREQUAL want)
    message(FATAL_ERROR "${what}: found [${present}], expected [${want}]")
  endif()
endfunction()

load_library("without an .ini")
expect_folder("without an .ini" "lib" "lib/${NAME}")

file(WRITE "${WORK}/lib/${INI}" "; written by the test\r\n[Logger]\r\nFileName=${logName}\r\n")
load_library("with an .ini")
expect_folder("with an .ini" "gps.log" "lib" "lib/${INI}" "lib/${NAME}")
file(SIZE "${log}" size)
if(NOT size EQUAL 0)
  message(FATAL_ERROR "the log file is not empty after loading: ${size} bytes")
endif()

file(WRITE "${log}" "the previous run's log\n")
load_library("with an earlier log")
file(SIZE "${log}" size)
if(NOT size EQUAL 0)
  message(FATAL_ERROR "the earlier log was not replaced by an empty one: ${size} bytes")
endif()

file(REMOVE_RECURSE "${WORK}")
message(STATUS "load-time configuration of ${NAME}: as expected")
