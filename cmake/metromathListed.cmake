# metromath_require_listed(<dir> <glob> <file>...)
#
# Sources are listed by hand; this check makes a file that was added to <dir>
# but not to its list fail the configure instead of being silently left out of
# the build (or out of the test run).  <file> names are relative to <dir>.
function(metromath_require_listed dir pattern)
  file(GLOB present CONFIGURE_DEPENDS RELATIVE ${dir} ${dir}/${pattern})
  foreach(f ${present})
    if(NOT f IN_LIST ARGN)
      message(FATAL_ERROR "${dir}/${f} is not listed in the build: add it to the list beside this check")
    endif()
  endforeach()
endfunction()
