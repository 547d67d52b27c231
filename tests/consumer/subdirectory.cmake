# Configures and builds tests/consumer/subdirectory, a project that pulls the
# metromath source tree in with add_subdirectory, runs its program and checks
# the output (the same program and output as the installed-package consumer).
#
# cmake -DSOURCE_DIR=<metromath sources> -DWORK_DIR=<scratch> -DCONSUMER_DIR=<this folder>
#       -DBUILD_TYPE=<type> -DCXX=<compiler> [-DLAUNCHER=<ccache>] [-DSANITIZE=ON]
#       -P subdirectory.cmake
set(required_vars SOURCE_DIR)
include(${CMAKE_CURRENT_LIST_DIR}/common.cmake)

run_step("configure" ${CMAKE_COMMAND} -S ${CONSUMER_DIR}/subdirectory -B ${WORK_DIR}
         -DMETROMATH_SOURCE_DIR=${SOURCE_DIR} -DCMAKE_BUILD_TYPE=${BUILD_TYPE} -DCMAKE_CXX_COMPILER=${CXX}
         "-DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER}" -DMETROMATH_SANITIZE=${SANITIZE}
         "-DCMAKE_EXE_LINKER_FLAGS=${san_flags}")
run_step("build" ${CMAKE_COMMAND} --build ${WORK_DIR} ${cfg} -j 2)
find_program(app NAMES app PATHS ${WORK_DIR} ${WORK_DIR}/${BUILD_TYPE} NO_DEFAULT_PATH NO_CACHE)
if(NOT app)
  message(FATAL_ERROR "consumer program not found in ${WORK_DIR}")
endif()
run_consumer("add_subdirectory consumer" ${app})
