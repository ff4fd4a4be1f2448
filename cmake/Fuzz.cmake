# The libFuzzer targets of test/fuzz: built by clang++ with -fsanitize=fuzzer
# (the module itself is built with g++) as an external project in the build tree's fuzz/,
# and run for a few seconds each by the test suite (label "fuzz"; they need no
# server). QN_FUZZ is on when a clang++ that links libFuzzer is found.
include(ExternalProject)

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  set(QN_FUZZ_CXX "${CMAKE_CXX_COMPILER}" CACHE FILEPATH "clang++ that builds the fuzz targets")
else()
  find_program(QN_FUZZ_CXX NAMES clang++-14 clang++ DOC "clang++ that builds the fuzz targets")
endif()

# Whether QN_FUZZ_CXX links a fuzz target with the sanitizers; probed once.
if(QN_FUZZ_CXX AND NOT DEFINED QN_FUZZ_SUPPORTED)
  set(probe_dir "${CMAKE_BINARY_DIR}/CMakeFiles/fuzz-probe")
  file(WRITE "${probe_dir}/probe.cpp"
       "#include <cstddef>\n#include <cstdint>\n"
       "extern \"C\" int LLVMFuzzerTestOneInput(const uint8_t*, size_t) { return 0; }\n")
  execute_process(COMMAND "${QN_FUZZ_CXX}" -fsanitize=fuzzer,address,undefined probe.cpp -o probe
                  WORKING_DIRECTORY "${probe_dir}" RESULT_VARIABLE probe_failed OUTPUT_QUIET ERROR_QUIET)
  if(probe_failed)
    set(QN_FUZZ_SUPPORTED OFF CACHE INTERNAL "")
  else()
    set(QN_FUZZ_SUPPORTED ON CACHE INTERNAL "")
  endif()
endif()
if(NOT QN_FUZZ_SUPPORTED)
  set(QN_FUZZ_SUPPORTED OFF)
endif()

option(QN_FUZZ "Build the libFuzzer targets and run them briefly in the tests" ${QN_FUZZ_SUPPORTED})
set(QN_FUZZ_SECONDS 4 CACHE STRING "Seconds each fuzz target runs in the tests")

if(QN_FUZZ)
  if(NOT QN_FUZZ_SUPPORTED)
    message(FATAL_ERROR "QN_FUZZ needs a clang++ with libFuzzer (clang-14 and libclang-rt-14-dev; scripts/setup.sh)")
  endif()
  message(STATUS "Fuzz targets built with ${QN_FUZZ_CXX}")
  set(QN_FUZZ_BIN_DIR "${CMAKE_BINARY_DIR}/fuzz")
  ExternalProject_Add(qn_fuzz
      SOURCE_DIR "${PROJECT_SOURCE_DIR}/test/fuzz"
      BINARY_DIR "${QN_FUZZ_BIN_DIR}"
      CMAKE_ARGS "-DCMAKE_CXX_COMPILER=${QN_FUZZ_CXX}" "-DQN_ROOT=${PROJECT_SOURCE_DIR}"
                 "-DPG_INCLUDEDIR_SERVER=${PG_INCLUDEDIR_SERVER}"
      INSTALL_COMMAND ""
      BUILD_ALWAYS ON)

  file(GLOB fuzz_sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/test/fuzz/fuzz_*.cpp")
  foreach(source ${fuzz_sources})
    get_filename_component(name "${source}" NAME_WE)
    string(REGEX REPLACE "^fuzz_" "" short "${name}")
    add_test(NAME fuzz.${short}
             COMMAND "${PROJECT_SOURCE_DIR}/scripts/fuzz.sh" --bin-dir "${QN_FUZZ_BIN_DIR}" ${QN_FUZZ_SECONDS} ${name})
    set_tests_properties(fuzz.${short} PROPERTIES LABELS fuzz TIMEOUT 300)
  endforeach()
else()
  message(STATUS "Fuzz targets not built (QN_FUZZ off)")
endif()
