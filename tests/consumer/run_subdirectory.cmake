# Configures and builds tests/consumer/subdirectory, a project that pulls the
# metromath source tree in with add_subdirectory, runs its program and checks
# the output (the same program and output as the installed-package consumer).
#
# cmake -DSOURCE_DIR=<metromath sources> -DWORK_DIR=<scratch> -DCONSUMER_DIR=<tests/consumer>
#       -DBUILD_TYPE=<type> -DCXX=<compiler> [-DLAUNCHER=<ccache>] [-DSANITIZE=ON]
#       -P run_subdirectory.cmake
foreach(v SOURCE_DIR WORK_DIR CONSUMER_DIR CXX)
  if(NOT DEFINED ${v})
    message(FATAL_ERROR "run_subdirectory.cmake: ${v} is not set")
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

file(READ ${CONSUMER_DIR}/expected.txt expected)
set(san_flags "")
if(SANITIZE)
  set(san_flags "-fsanitize=address,undefined -fno-omit-frame-pointer")
endif()
set(cfg "")
if(BUILD_TYPE)
  set(cfg --config ${BUILD_TYPE})
endif()

run_step("configure" ${CMAKE_COMMAND} -S ${CONSUMER_DIR}/subdirectory -B ${WORK_DIR}
         -DMETROMATH_SOURCE_DIR=${SOURCE_DIR} -DCMAKE_BUILD_TYPE=${BUILD_TYPE} -DCMAKE_CXX_COMPILER=${CXX}
         "-DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER}" -DMETROMATH_SANITIZE=${SANITIZE}
         "-DCMAKE_EXE_LINKER_FLAGS=${san_flags}")
run_step("build" ${CMAKE_COMMAND} --build ${WORK_DIR} ${cfg} -j 2)
find_program(app NAMES app PATHS ${WORK_DIR} ${WORK_DIR}/${BUILD_TYPE} NO_DEFAULT_PATH NO_CACHE)
if(NOT app)
  message(FATAL_ERROR "consumer program not found in ${WORK_DIR}")
endif()
run_step("run" ${app})
if(NOT step_output STREQUAL expected)
  message(FATAL_ERROR "consumer printed\n${step_output}\nexpected\n${expected}")
endif()
message(STATUS "add_subdirectory consumer: ok")
