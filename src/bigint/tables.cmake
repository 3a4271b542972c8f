# Big integers need GMP (its header and its library). The library goes into
# ORLIX_LINK_LIBS, which both the shared object and the archive link; it is
# named by its imported target so that the installed CMake package finds it
# again on the user's machine instead of remembering a path from this one.
find_package(GMP REQUIRED)
target_include_directories(orlix_objects PRIVATE ${GMP_INCLUDE_DIR})
list(APPEND ORLIX_LINK_LIBS GMP::GMP)
