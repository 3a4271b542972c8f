cmake_minimum_required(VERSION 3.25)
# Checks that the shared object was linked hardened: bound at load time
# (BIND_NOW), its relocations read-only afterwards (GNU_RELRO), a stack that
# is not executable, and - in optimised builds - fortified C library calls.
# Variables: READELF, SHARED, FORTIFIED (ON when the build defines
# _FORTIFY_SOURCE).
set(problems "")
macro(problem text)
  string(APPEND problems "  ${text}\n")
endmacro()

foreach(what dynamic program-headers dyn-syms)
  execute_process(COMMAND ${READELF} -W --${what} ${SHARED}
    RESULT_VARIABLE result OUTPUT_VARIABLE ${what} ERROR_VARIABLE errors)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "readelf --${what} failed: ${errors}")
  endif()
endforeach()

if(NOT dynamic MATCHES "\\(FLAGS\\)[^\n]*BIND_NOW" AND NOT dynamic MATCHES "\\(FLAGS_1\\)[^\n]*NOW")
  problem("no BIND_NOW: link with -z now")
endif()
if(NOT program-headers MATCHES "\n *GNU_RELRO ")
  problem("no GNU_RELRO segment: link with -z relro")
endif()
if(NOT program-headers MATCHES "\n *GNU_STACK [^\n]* RW  ")
  problem("the stack is executable or not marked (GNU_STACK is not RW)")
endif()
if(FORTIFIED)
  string(REGEX MATCHALL "__[a-z_]+_chk" fortified "${dyn-syms}")
  list(REMOVE_DUPLICATES fortified)
  list(REMOVE_ITEM fortified __stack_chk_fail)
  if(NOT fortified)
    problem("no fortified calls (__*_chk): compile with optimisation and -D_FORTIFY_SOURCE=2")
  else()
    message(STATUS "fortified calls: ${fortified}")
  endif()
endif()

if(problems)
  message(FATAL_ERROR "hardening check of ${SHARED} failed:\n${problems}")
endif()
message(STATUS "BIND_NOW, GNU_RELRO and a non-executable stack are in place")
