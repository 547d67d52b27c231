# Loki (Debian: libloki-dev) ships no CMake package.  This module finds its
# headers and library and defines the imported target Loki::Loki; the build
# uses it, and the installed metromathConfig.cmake includes it again so that
# a consumer's metromath::metromath brings Loki along.
# Sets Loki_FOUND; Loki_INCLUDE_DIR and Loki_LIBRARY are cache entries that can
# be set by hand for a Loki elsewhere.
if(TARGET Loki::Loki)
  set(Loki_FOUND TRUE)
  return()
endif()
find_path(Loki_INCLUDE_DIR NAMES loki/SmartPtr.h)
find_library(Loki_LIBRARY NAMES loki)
if(Loki_INCLUDE_DIR AND Loki_LIBRARY)
  set(Loki_FOUND TRUE)
  add_library(Loki::Loki UNKNOWN IMPORTED)
  set_target_properties(Loki::Loki PROPERTIES
    IMPORTED_LOCATION "${Loki_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${Loki_INCLUDE_DIR}")
else()
  set(Loki_FOUND FALSE)
endif()
