cmake_minimum_required(VERSION 3.25)
# Compiles each header of INCLUDE_DIR alone (included twice, to exercise its
# guard) as C99 and as C++11 with warnings as errors.
# Variables: C_COMPILER, CXX_COMPILER, INCLUDE_DIR, WORK_DIR.
file(GLOB headers RELATIVE ${INCLUDE_DIR} ${INCLUDE_DIR}/*.h)
if(NOT headers)
  message(FATAL_ERROR "no headers found in ${INCLUDE_DIR}")
endif()
file(MAKE_DIRECTORY ${WORK_DIR})

set(failures 0)
foreach(header IN LISTS headers)
  string(MAKE_C_IDENTIFIER ${header} stem)
  set(text "#include <${header}>\n#include <${header}>\nint main(void) { return 0; }\n")
  file(WRITE ${WORK_DIR}/${stem}.c "${text}")
  file(WRITE ${WORK_DIR}/${stem}.cpp "${text}")
  foreach(lang c cpp)
    if(lang STREQUAL "c")
      set(command ${C_COMPILER} -std=c99)
    else()
      set(command ${CXX_COMPILER} -std=c++11)
    endif()
    execute_process(
      COMMAND ${command} -Wall -Wextra -pedantic -Werror -fsyntax-only -I${INCLUDE_DIR}
              ${WORK_DIR}/${stem}.${lang}
      RESULT_VARIABLE result
      OUTPUT_VARIABLE output
      ERROR_VARIABLE output)
    if(result EQUAL 0)
      message(STATUS "ok   ${header} (${lang})")
    else()
      message(STATUS "FAIL ${header} (${lang})\n${output}")
      math(EXPR failures "${failures} + 1")
    endif()
  endforeach()
endforeach()

if(failures GREATER 0)
  message(FATAL_ERROR "${failures} header compilation(s) failed")
endif()
