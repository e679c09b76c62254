# Compiler settings shared by every target of the tree.
add_library(hv-options INTERFACE)
target_compile_options(hv-options INTERFACE -Wall -Wextra)
target_include_directories(hv-options INTERFACE ${CMAKE_BINARY_DIR}/generated)

if(HV_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()

# The distribution's hardening (what dpkg-buildflags gives Debian's own packages with
# hardening=+all): PIE, fortified libc calls, stack protector and stack-clash protection,
# control-flow protection where the target has it, read-only relocations bound at start-up.
# Not in the sanitizer tree: AddressSanitizer replaces the fortified functions and is built
# without optimisation, which _FORTIFY_SOURCE needs.
option(HV_HARDENING "Build with the distribution's hardening flags" ON)
if(HV_HARDENING AND NOT HV_SANITIZE AND NOT HV_FUZZ)
  include(CheckPIESupported)
  check_pie_supported(OUTPUT_VARIABLE pie_message LANGUAGES CXX)
  if(NOT CMAKE_CXX_LINK_PIE_SUPPORTED)
    message(WARNING "HV_HARDENING: the linker cannot make position-independent executables: ${pie_message}")
  endif()
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  include(CheckCXXCompilerFlag)
  # Each entry one check; the format pair only works together.
  foreach(flags -fstack-protector-strong -fstack-clash-protection -fcf-protection "-Wformat -Werror=format-security")
    string(MAKE_C_IDENTIFIER "HV_HAS ${flags}" has_flags)
    check_cxx_compiler_flag("${flags}" ${has_flags})
    if(${has_flags})
      separate_arguments(flags UNIX_COMMAND "${flags}")
      add_compile_options(${flags})
    endif()
  endforeach()
  # Fortified calls need optimisation: only the optimised configurations have them. Undefined
  # first, as some compilers define it themselves.
  add_compile_options(-U_FORTIFY_SOURCE $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-D_FORTIFY_SOURCE=2>)
  if(NOT APPLE)
    add_link_options(LINKER:-z,relro LINKER:-z,now)
  endif()
endif()

if(HV_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "HV_FUZZ needs clang (libFuzzer)")
  endif()
  # Coverage feedback for the fuzzers from every library they link.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# hv_library(name SOURCES...): one static library per folder, headers included by file name.
function(hv_library name)
  add_library(${name} STATIC ${ARGN})
  target_include_directories(${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC hv-options)
endfunction()

# Every test runs with TMPDIR set to one folder per run of the suite, made fresh before the first
# test and removed after the last (the CTest fixture hv-run-folder, tests/CMakeLists.txt): what a
# test leaves there (a crashed or killed process's files, a folder the product keeps on purpose)
# does not outlive the run. The folder's name is fixed per build tree, for the tests' properties.
if(DEFINED ENV{TMPDIR} AND IS_DIRECTORY "$ENV{TMPDIR}")
  set(hv_temporary_base "$ENV{TMPDIR}")
else()
  set(hv_temporary_base /tmp)
endif()
string(MD5 hv_tree_hash "${CMAKE_BINARY_DIR}")
string(SUBSTRING "${hv_tree_hash}" 0 12 hv_tree_hash)
set(HV_TEST_RUN_FOLDER "${hv_temporary_base}/hv-test-run-${hv_tree_hash}" CACHE INTERNAL "TMPDIR of the tests")

# hv_test_in_run_folder(test...): puts tests made with a plain add_test in the run's folder;
# hv_test and hv_fuzzer do it for theirs. Such tests (scripts) also learn the product version
# from HV_VERSION.
function(hv_test_in_run_folder)
  foreach(test IN LISTS ARGN)
    set_property(TEST ${test} APPEND PROPERTY ENVIRONMENT "TMPDIR=${HV_TEST_RUN_FOLDER}" "HV_VERSION=${PROJECT_VERSION}")
    set_property(TEST ${test} APPEND PROPERTY FIXTURES_REQUIRED hv-run-folder)
  endforeach()
endfunction()

# hv_test(name SOURCES... LIBS ...): a GoogleTest executable registered with CTest.
function(hv_test name)
  cmake_parse_arguments(T "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE ${T_LIBS} hv-test-support GTest::gtest GTest::gmock GTest::gtest_main)
  # One variable only: gtest_discover_tests splits a list value into separate arguments, so only
  # the first entry of an ENVIRONMENT list would reach the tests.
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES ENVIRONMENT "TMPDIR=${HV_TEST_RUN_FOLDER}" FIXTURES_REQUIRED hv-run-folder)
endfunction()

# hv_benchmark(name SOURCES... LIBS ...)
function(hv_benchmark name)
  cmake_parse_arguments(B "" "" "SOURCES;LIBS" ${ARGN})
  if(HV_BENCHMARKS)
    add_executable(${name} ${B_SOURCES})
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/benchmarks)
    target_link_libraries(${name} PRIVATE ${B_LIBS} benchmark::benchmark)
  endif()
endfunction()

# hv_fuzzer(name SOURCE file CORPUS folder [MAX_LEN bytes [GROW seed]] LIBS ...): a libFuzzer
# target, run by CTest for a bounded time. MAX_LEN raises libFuzzer's input limit; GROW names a
# committed seed that is grown to MAX_LEN bytes (its last byte repeated) in the run's copy of the
# corpus, so that long inputs are tried without committing them.
function(hv_fuzzer name)
  cmake_parse_arguments(F "" "SOURCE;CORPUS;MAX_LEN;GROW" "LIBS" ${ARGN})
  if(HV_FUZZ)
    add_executable(${name} ${F_SOURCE})
    target_link_libraries(${name} PRIVATE ${F_LIBS} hv-options)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    set(seconds $ENV{HV_FUZZ_SECONDS})
    if(NOT seconds)
      set(seconds 30)
    endif()
    # Run on a copy of the corpus so the committed seeds stay as they are.
    add_test(NAME fuzz.${name}
      COMMAND ${CMAKE_COMMAND} -E env ${CMAKE_SOURCE_DIR}/scripts/run-fuzzer.sh $<TARGET_FILE:${name}> ${F_CORPUS} ${seconds}
        ${F_MAX_LEN} ${F_GROW})
    set_tests_properties(fuzz.${name} PROPERTIES LABELS fuzz TIMEOUT 600)
    hv_test_in_run_folder(fuzz.${name})
  endif()
endfunction()
