cmake_minimum_required(VERSION 3.25)
# Checks the shared object's dynamic symbols, soname and links, and that the
# static archive exists.
# Variables: NM, READELF, SHARED (the real file, liborlix_util.so.X.Y.Z), STATIC.
set(problems "")
macro(problem text)
  string(APPEND problems "  ${text}\n")
endmacro()

foreach(tool NM READELF)
  if(NOT ${tool})
    message(FATAL_ERROR "${tool} is not set")
  endif()
endforeach()
if(NOT EXISTS "${SHARED}")
  message(FATAL_ERROR "shared object ${SHARED} not found")
endif()

# Defined dynamic symbols. The version definition is an absolute symbol
# (type A) and is not a function of the library.
execute_process(COMMAND ${NM} -D --defined-only ${SHARED}
  RESULT_VARIABLE result OUTPUT_VARIABLE listing ERROR_VARIABLE errors)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "nm failed: ${errors}")
endif()
string(REPLACE "\n" ";" lines "${listing}")
set(exported "")
foreach(line IN LISTS lines)
  if(line MATCHES "^[0-9a-fA-F]* *([A-Za-z]) ([^@ ]+)")
    set(type ${CMAKE_MATCH_1})
    set(name ${CMAKE_MATCH_2})
    if(type STREQUAL "A")
      continue()
    endif()
    list(APPEND exported ${name})
    if(NOT name MATCHES "^orlix_")
      problem("exported symbol without the orlix_ prefix: ${name} (${type})")
    endif()
  endif()
endforeach()
list(LENGTH exported count)
message(STATUS "${count} exported symbols")
foreach(required orlix_malloc orlix_free orlix_stream_new_mem orlix_util_version
                 orlix_json_decodewitherror)
  if(NOT required IN_LIST exported)
    problem("${required} is not exported")
  endif()
endforeach()

# Internal names stay hidden, whether defined or referenced.
execute_process(COMMAND ${NM} -D ${SHARED} OUTPUT_VARIABLE all_dynamic)
foreach(internal iorlix_arraylist_sort so_load my_malloc)
  if(all_dynamic MATCHES "[ \t]${internal}(@|\n|$)")
    problem("internal symbol ${internal} appears in the dynamic table")
  endif()
endforeach()

# Soname.
execute_process(COMMAND ${READELF} -d ${SHARED} OUTPUT_VARIABLE dynamic)
if(NOT dynamic MATCHES "\\(SONAME\\)[^\n]*\\[liborlix_util\\.so\\.2\\]")
  problem("soname is not liborlix_util.so.2")
endif()

# File name and links.
get_filename_component(dir ${SHARED} DIRECTORY)
get_filename_component(real_name ${SHARED} NAME)
if(NOT real_name STREQUAL "liborlix_util.so.2.6.0")
  problem("shared object is named ${real_name}, expected liborlix_util.so.2.6.0")
endif()
file(REAL_PATH ${SHARED} real)
foreach(link liborlix_util.so.2 liborlix_util.so)
  if(NOT IS_SYMLINK ${dir}/${link})
    problem("${link} is missing or not a link")
  else()
    file(REAL_PATH ${dir}/${link} target)
    if(NOT target STREQUAL real)
      problem("${link} resolves to ${target}, not ${real}")
    endif()
  endif()
endforeach()

if(NOT EXISTS "${STATIC}")
  problem("static archive ${STATIC} not found")
endif()

if(problems)
  message(FATAL_ERROR "export check failed:\n${problems}")
endif()
message(STATUS "exports, soname, links and archive are in order")
