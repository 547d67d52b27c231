# metromath_require_listed(<dir> <glob> <name>...)
#
# Sources are listed by hand; this check makes a file that was added to <dir>
# but not to its list fail the configure instead of being silently left out of
# the build (or out of the test run).  A name is a file name relative to <dir>
# or such a name without its extension.
function(metromath_require_listed dir pattern)
  file(GLOB present CONFIGURE_DEPENDS RELATIVE ${dir} ${dir}/${pattern})
  foreach(f ${present})
    get_filename_component(stem ${f} NAME_WE)
    if(NOT f IN_LIST ARGN AND NOT stem IN_LIST ARGN)
      message(FATAL_ERROR "${dir}/${f} is not listed in the build: add it to the list beside this check")
    endif()
  endforeach()
endfunction()
