# fpt_add_test(<name> SOURCES <files...> LIBS <targets...> [LABELS <labels...>])
# One GoogleTest executable; each TEST() becomes its own CTest case.
function(fpt_add_test name)
  if(NOT FPT_BUILD_TESTS)
    return()
  endif()
  cmake_parse_arguments(T "" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  if(NOT T_LABELS)
    set(T_LABELS unit)
  endif()
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 60)
  endif()
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gmock GTest::gtest_main Threads::Threads)
  gtest_discover_tests(${name}
    WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}
    PROPERTIES LABELS "${T_LABELS}" TIMEOUT ${T_TIMEOUT}
    DISCOVERY_TIMEOUT 60)
endfunction()

# fpt_add_fuzzer(<name> SOURCES <files...> LIBS <targets...>): one libFuzzer
# harness, built by the target "fuzzers"; its seeds are in <dir>/corpus/<name>.
function(fpt_add_fuzzer name)
  cmake_parse_arguments(F "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${F_SOURCES})
  target_link_libraries(${name} PRIVATE ${F_LIBS})
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  if(NOT TARGET fuzzers)
    add_custom_target(fuzzers)
  endif()
  add_dependencies(fuzzers ${name})
endfunction()
