# Installs a built metromath into a scratch prefix, builds the consumer project
# in this folder against it with find_package, runs it and checks its output;
# then does the same through pkg-config when pkg-config is installed.
#
# cmake -DBUILD_DIR=<metromath build> -DWORK_DIR=<scratch> -DCONSUMER_DIR=<this folder>
#       -DBUILD_TYPE=<type> -DCXX=<compiler> [-DSANITIZE=ON] -P install.cmake
set(required_vars BUILD_DIR)
include(${CMAKE_CURRENT_LIST_DIR}/common.cmake)
set(prefix ${WORK_DIR}/prefix)
set(build ${WORK_DIR}/build)

# 1. install
run_step("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix} ${cfg})
foreach(f include/math/all.h include/math/matrix_io.h include/math/spline.h include/math/export.h include/core/stream.h
          include/core/core_export.h)
  if(NOT EXISTS ${prefix}/${f})
    message(FATAL_ERROR "installed tree lacks ${f}")
  endif()
endforeach()
file(GLOB_RECURSE config_files ${prefix}/*/metromathConfig.cmake)
if(NOT config_files)
  message(FATAL_ERROR "installed tree lacks metromathConfig.cmake")
endif()

# 2. configure, build and run the consumer with find_package
run_step("consumer configure" ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${build}
         -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=${BUILD_TYPE} -DCMAKE_CXX_COMPILER=${CXX}
         "-DCMAKE_CXX_FLAGS=${san_flags}" "-DCMAKE_EXE_LINKER_FLAGS=${san_flags}")
run_step("consumer build" ${CMAKE_COMMAND} --build ${build} ${cfg})
find_program(app NAMES app PATHS ${build} ${build}/${BUILD_TYPE} NO_DEFAULT_PATH NO_CACHE)
if(NOT app)
  message(FATAL_ERROR "consumer program not found in ${build}")
endif()
file(GLOB libdirs LIST_DIRECTORIES true ${prefix}/lib*)
string(REPLACE ";" ":" libpath "${libdirs}")
run_consumer("find_package consumer" ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libpath} ${app})

# 2b. the installed Python package, found through PYTHONPATH alone
if(PYTHON)
  execute_process(
    COMMAND ${PYTHON} -c
            "import sysconfig; print(sysconfig.get_path('platlib', 'posix_prefix', vars={'base': '', 'platbase': ''}).lstrip('/'))"
    OUTPUT_VARIABLE py_site OUTPUT_STRIP_TRAILING_WHITESPACE)
  run_step("python import" ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH PYTHONPATH=${prefix}/${py_site}
           ${PYTHON} -c "import numpy, metromath\nc = metromath.fit_circle_lsq(numpy.array([[1.0, 0], [0, 1], [-1, 0], [0, -1]]))\nprint(round(c.radius, 12))")
  if(NOT step_output STREQUAL "1.0\n")
    message(FATAL_ERROR "installed Python package printed ${step_output}")
  endif()
  message(STATUS "installed Python package: ok")
endif()

find_program(app_math NAMES app_math PATHS ${build} ${build}/${BUILD_TYPE} NO_DEFAULT_PATH NO_CACHE)
if(NOT app_math)
  message(FATAL_ERROR "math-only consumer program not found in ${build}")
endif()
# Linked as needed, the program must not need the core library itself (else
# the run below would not show that libmetromath finds it).  Not checked with
# the sanitizers: UBSan's type checks reference the core's exception typeinfo.
find_program(READELF_EXE readelf NO_CACHE)
if(READELF_EXE AND NOT SANITIZE)
  run_step("readelf" ${READELF_EXE} -d ${app_math})
  if(step_output MATCHES "libmetromath_core")
    message(FATAL_ERROR "the consumer needs the core library directly:\n${step_output}")
  endif()
endif()
# No LD_LIBRARY_PATH: the program's own run path finds libmetromath, whose
# run path ($ORIGIN) finds the core library.
run_step("math-only consumer run" ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${app_math})
if(NOT step_output STREQUAL "radius 5 valid\nlength 5\ncaught 33\n")
  message(FATAL_ERROR "math-only consumer printed\n${step_output}")
endif()
message(STATUS "math-only consumer without LD_LIBRARY_PATH: ok")

# 3. pkg-config, when available
find_program(PKG_CONFIG_EXE pkg-config NO_CACHE)
if(NOT PKG_CONFIG_EXE)
  message(STATUS "pkg-config not installed: check skipped")
  return()
endif()
file(GLOB_RECURSE pc_files ${prefix}/*/metromath.pc)
if(NOT pc_files)
  message(FATAL_ERROR "installed tree lacks metromath.pc")
endif()
list(GET pc_files 0 pc_file)
get_filename_component(pc_dir ${pc_file} DIRECTORY)
run_step("pkg-config" ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dir}
         ${PKG_CONFIG_EXE} --cflags --libs metromath)
string(STRIP "${step_output}" pc_flags)
message(STATUS "pkg-config --cflags --libs metromath: ${pc_flags}")
# The include and library directories must lie in the scratch prefix, not in
# the prefix the build was configured with.
foreach(var includedir libdir)
  run_step("pkg-config ${var}" ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dir}
           ${PKG_CONFIG_EXE} --variable=${var} metromath)
  string(STRIP "${step_output}" dir)
  get_filename_component(dir "${dir}" REALPATH)
  get_filename_component(real_prefix "${prefix}" REALPATH)
  string(FIND "${dir}/" "${real_prefix}/" at)
  if(NOT at EQUAL 0 OR NOT IS_DIRECTORY "${dir}")
    message(FATAL_ERROR "pkg-config ${var} ${dir} is not a directory in the install prefix ${prefix}")
  endif()
endforeach()
if(NOT pc_flags MATCHES "-lmetromath")
  message(FATAL_ERROR "pkg-config libs lack -lmetromath: ${pc_flags}")
endif()
separate_arguments(pc_list UNIX_COMMAND "${pc_flags}")
separate_arguments(san_list UNIX_COMMAND "${san_flags}")
run_step("pkg-config build" ${CXX} ${san_list} ${CONSUMER_DIR}/main.cpp -o ${WORK_DIR}/app_pc ${pc_list})
run_consumer("pkg-config consumer" ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libpath} ${WORK_DIR}/app_pc)
