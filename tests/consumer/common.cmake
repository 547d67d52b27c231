# Shared by the consumer scripts (install.cmake, subdirectory.cmake): checks
# that the listed variables are set, starts WORK_DIR afresh and provides
#   run_step(<what> <command>...)  runs a command, fails with its output,
#                                  leaves its standard output in step_output;
#   run_consumer(<what> <command>...)  runs the consumer program (main.cpp)
#                                  and fails unless it prints what
#                                  expected.txt holds;
#   san_flags  the sanitizer flags every program loading a sanitized library
#              needs (empty unless SANITIZE);
#   cfg        --config <BUILD_TYPE> for multi-configuration generators.
foreach(v WORK_DIR CONSUMER_DIR CXX ${required_vars})
  if(NOT DEFINED ${v})
    message(FATAL_ERROR "${CMAKE_SCRIPT_MODE_FILE}: ${v} is not set")
  endif()
endforeach()

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

function(run_step what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed (${rc}):\n${out}\n${err}")
  endif()
  set(step_output "${out}" PARENT_SCOPE)
endfunction()

function(run_consumer what)
  run_step("${what} run" ${ARGN})
  file(READ ${CONSUMER_DIR}/expected.txt expected)
  if(NOT step_output STREQUAL expected)
    message(FATAL_ERROR "${what} printed\n${step_output}\nexpected\n${expected}")
  endif()
  message(STATUS "${what}: ok")
endfunction()

set(san_flags "")
if(SANITIZE)
  set(san_flags "-fsanitize=address,undefined -fno-omit-frame-pointer")
endif()

set(cfg "")
if(BUILD_TYPE)
  set(cfg --config ${BUILD_TYPE})
endif()
