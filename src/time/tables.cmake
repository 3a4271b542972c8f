# The Time family's zone database, generated from the tz sources in data/
# by tools/gen_tz_tables.py. The generator checks the row counts and fails
# the build when they are not those of the shipped data.
find_package(Python3 REQUIRED COMPONENTS Interpreter)

set(ORLIX_TZ_DATA_DIR ${PROJECT_SOURCE_DIR}/data/tzdata-2015f)
set(ORLIX_TZ_SOURCE_FILES
  ${ORLIX_TZ_DATA_DIR}/africa
  ${ORLIX_TZ_DATA_DIR}/antarctica
  ${ORLIX_TZ_DATA_DIR}/asia
  ${ORLIX_TZ_DATA_DIR}/australasia
  ${ORLIX_TZ_DATA_DIR}/europe
  ${ORLIX_TZ_DATA_DIR}/northamerica
  ${ORLIX_TZ_DATA_DIR}/southamerica
  ${ORLIX_TZ_DATA_DIR}/etcetera
  ${ORLIX_TZ_DATA_DIR}/backward
  ${ORLIX_TZ_DATA_DIR}/pacificnew)
set(ORLIX_TZ_GENERATED_DIR ${CMAKE_CURRENT_BINARY_DIR}/time)
set(ORLIX_TZ_TABLES ${ORLIX_TZ_GENERATED_DIR}/tz_tables.cpp)
set(ORLIX_TZ_COUNTS ${ORLIX_TZ_GENERATED_DIR}/tz_counts.hpp)

add_custom_command(
  OUTPUT ${ORLIX_TZ_TABLES} ${ORLIX_TZ_COUNTS}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${ORLIX_TZ_GENERATED_DIR}
  COMMAND Python3::Interpreter ${PROJECT_SOURCE_DIR}/tools/gen_tz_tables.py
          --output ${ORLIX_TZ_TABLES} --header ${ORLIX_TZ_COUNTS} ${ORLIX_TZ_SOURCE_FILES}
  DEPENDS ${PROJECT_SOURCE_DIR}/tools/gen_tz_tables.py ${ORLIX_TZ_SOURCE_FILES}
  COMMENT "Generating the time-zone tables"
  VERBATIM)
target_sources(orlix_objects PRIVATE ${ORLIX_TZ_TABLES} ${ORLIX_TZ_COUNTS})

# The precomputed transitions (see time/tz_steps.hpp), computed by a host
# tool that runs the library's own rule searches over the tables above and
# checks its result against them.
set(ORLIX_TZ_STEPS ${ORLIX_TZ_GENERATED_DIR}/tz_steps.cpp)
add_executable(orlix_gen_tz_steps
  ${PROJECT_SOURCE_DIR}/tools/gen_tz_steps.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/time/ORLIX_Time_Calendar.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/time/ORLIX_Time_Rules.cpp
  ${ORLIX_TZ_TABLES} ${ORLIX_TZ_COUNTS})
target_include_directories(orlix_gen_tz_steps PRIVATE
  ${CMAKE_CURRENT_SOURCE_DIR} ${CMAKE_CURRENT_BINARY_DIR} ${PROJECT_SOURCE_DIR}/include)
set_target_properties(orlix_gen_tz_steps PROPERTIES
  RUNTIME_OUTPUT_DIRECTORY ${ORLIX_TZ_GENERATED_DIR})
add_custom_command(
  OUTPUT ${ORLIX_TZ_STEPS}
  COMMAND orlix_gen_tz_steps ${ORLIX_TZ_STEPS}
  DEPENDS orlix_gen_tz_steps
  COMMENT "Precomputing the time-zone transitions"
  VERBATIM)
target_sources(orlix_objects PRIVATE ${ORLIX_TZ_STEPS})
