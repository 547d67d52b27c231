# Install-and-consume test: installs this build into a scratch prefix and
# builds tests/consumer against it (find_package and pkg-config), with the
# same build type, compiler and sanitizer flags as this build.
add_test(NAME consumer_install
         COMMAND ${CMAKE_COMMAND}
                 -DBUILD_DIR=${PROJECT_BINARY_DIR}
                 -DWORK_DIR=${CMAKE_CURRENT_BINARY_DIR}/consumer_install
                 -DCONSUMER_DIR=${CMAKE_CURRENT_SOURCE_DIR}/consumer
                 -DBUILD_TYPE=${CMAKE_BUILD_TYPE}
                 -DCXX=${CMAKE_CXX_COMPILER}
                 -DSANITIZE=${METROMATH_SANITIZE}
                 -P ${CMAKE_CURRENT_SOURCE_DIR}/consumer/run.cmake)
set_tests_properties(consumer_install PROPERTIES TIMEOUT 600 LABELS install)

# The product picks the widest vector kernel the processor runs; these runs cap
# it so that the narrower kernels are checked on a wide machine as well.
foreach(isa sse2 avx2)
  add_test(NAME matrix_kernel_${isa} COMMAND matrix_kernel_test)
  set_tests_properties(matrix_kernel_${isa} PROPERTIES ENVIRONMENT "METROMATH_MATRIX_ISA=${isa}")
endforeach()
# The Gauss-Jordan elimination also has a baseline and an AVX2 build.
add_test(NAME gauss_jordan_sse2 COMMAND solver_test --gtest_filter=*GaussJordanBitIdentical*)
set_tests_properties(gauss_jordan_sse2 PROPERTIES ENVIRONMENT "METROMATH_MATRIX_ISA=sse2")
