# The Unicode family's normalization, case-folding and string-preparation
# tables, generated from the files in data/unicode and data/stringprep by
# tools/gen_unicode_tables.py. The generator checks every table's row count
# and fails the build when one is not that of the shipped data.
find_package(Python3 REQUIRED COMPONENTS Interpreter)

set(ORLIX_UNICODE_DATA_FILES
  ${PROJECT_SOURCE_DIR}/data/unicode/UnicodeData-8.0.0.txt
  ${PROJECT_SOURCE_DIR}/data/unicode/UnicodeData-5.0.0.txt
  ${PROJECT_SOURCE_DIR}/data/unicode/DerivedNormalizationProps-8.0.0.txt
  ${PROJECT_SOURCE_DIR}/data/unicode/DerivedNormalizationProps-5.0.0.txt
  ${PROJECT_SOURCE_DIR}/data/unicode/CaseFolding-8.0.0.txt
  ${PROJECT_SOURCE_DIR}/data/stringprep/rfc3454-tables.txt)
set(ORLIX_UNICODE_TABLES ${CMAKE_CURRENT_BINARY_DIR}/ustring/ORLIX_UString_Tables.cpp)
set(ORLIX_UNICODE_TABLE_ROWS ${CMAKE_CURRENT_BINARY_DIR}/ustring/ORLIX_UString_TableRows.hpp)

add_custom_command(
  OUTPUT ${ORLIX_UNICODE_TABLES} ${ORLIX_UNICODE_TABLE_ROWS}
  COMMAND Python3::Interpreter ${PROJECT_SOURCE_DIR}/tools/gen_unicode_tables.py
          --data ${PROJECT_SOURCE_DIR}/data --output ${ORLIX_UNICODE_TABLES}
          --header ${ORLIX_UNICODE_TABLE_ROWS}
  DEPENDS ${PROJECT_SOURCE_DIR}/tools/gen_unicode_tables.py ${ORLIX_UNICODE_DATA_FILES}
  COMMENT "Generating the Unicode normalization and string-preparation tables"
  VERBATIM)
target_sources(orlix_objects PRIVATE ${ORLIX_UNICODE_TABLES} ${ORLIX_UNICODE_TABLE_ROWS})
