# Big integers need GMP (its header and its library). The library goes into
# ORLIX_LINK_LIBS, which both the shared object and the archive link.
find_path(GMP_INCLUDE_DIR gmp.h REQUIRED)
find_library(GMP_LIBRARY gmp REQUIRED)
target_include_directories(orlix_objects PRIVATE ${GMP_INCLUDE_DIR})
list(APPEND ORLIX_LINK_LIBS ${GMP_LIBRARY})
