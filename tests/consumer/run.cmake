# Installs a built metromath into a scratch prefix, builds the consumer project
# in this folder against it with find_package, runs it and checks its output;
# then does the same through pkg-config when pkg-config is installed.
#
# cmake -DBUILD_DIR=<metromath build> -DWORK_DIR=<scratch> -DCONSUMER_DIR=<this folder>
#       -DBUILD_TYPE=<type> -DCXX=<compiler> [-DSANITIZE=ON] -P run.cmake
foreach(v BUILD_DIR WORK_DIR CONSUMER_DIR CXX)
  if(NOT DEFINED ${v})
    message(FATAL_ERROR "run.cmake: ${v} is not set")
  endif()
endforeach()

set(prefix ${WORK_DIR}/prefix)
set(build ${WORK_DIR}/build)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

function(run_step what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed (${rc}):\n${out}\n${err}")
  endif()
  set(step_output "${out}" PARENT_SCOPE)
endfunction()

set(expected "radius 5 valid\nlength 5\ncaught 33\n")

# The sanitized library needs its runtime in every program that loads it.
set(san_flags "")
if(SANITIZE)
  set(san_flags "-fsanitize=address,undefined -fno-omit-frame-pointer")
endif()

# 1. install
set(cfg "")
if(BUILD_TYPE)
  set(cfg --config ${BUILD_TYPE})
endif()
run_step("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix} ${cfg})
foreach(f include/math/all.h include/math/matrix_io.h include/math/export.h include/core/stream.h
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
         "-DCMAKE_CXX_FLAGS=${san_flags}" "-DCMAKE_EXE_LINKER_FLAGS=${san_flags} -Wl,--as-needed")
run_step("consumer build" ${CMAKE_COMMAND} --build ${build} ${cfg})
find_program(app NAMES app PATHS ${build} ${build}/${BUILD_TYPE} NO_DEFAULT_PATH NO_CACHE)
if(NOT app)
  message(FATAL_ERROR "consumer program not found in ${build}")
endif()
file(GLOB libdirs LIST_DIRECTORIES true ${prefix}/lib*)
string(REPLACE ";" ":" libpath "${libdirs}")
# Linked as needed, the program must not need the core library itself (else
# the run below would not show that libmetromath finds it).  Not checked with
# the sanitizers: UBSan's type checks reference the core's exception typeinfo.
find_program(READELF_EXE readelf NO_CACHE)
if(READELF_EXE AND NOT SANITIZE)
  run_step("readelf" ${READELF_EXE} -d ${app})
  if(step_output MATCHES "libmetromath_core")
    message(FATAL_ERROR "the consumer needs the core library directly:\n${step_output}")
  endif()
endif()
# No LD_LIBRARY_PATH: the program's own run path finds libmetromath, whose
# run path ($ORIGIN) finds the core library.
run_step("consumer run" ${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH ${app})
if(NOT step_output STREQUAL expected)
  message(FATAL_ERROR "consumer printed\n${step_output}\nexpected\n${expected}")
endif()
message(STATUS "find_package consumer: ok")

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
run_step("pkg-config run" ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libpath} ${WORK_DIR}/app_pc)
if(NOT step_output STREQUAL expected)
  message(FATAL_ERROR "pkg-config consumer printed\n${step_output}\nexpected\n${expected}")
endif()
message(STATUS "pkg-config consumer: ok")
