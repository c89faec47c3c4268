# GoogleTest, cross-built from Debian's sources, and the helper that registers
# a Windows test program with ctest so that it runs under Wine.

set(KW_GTEST_SOURCE_DIR /usr/src/googletest CACHE PATH "GoogleTest sources (Debian package googletest)")
if(NOT EXISTS ${KW_GTEST_SOURCE_DIR}/CMakeLists.txt)
  message(FATAL_ERROR "GoogleTest sources not found in ${KW_GTEST_SOURCE_DIR}: apt-get install googletest")
endif()
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
set(gtest_disable_pthreads ON CACHE BOOL "" FORCE)
add_subdirectory(${KW_GTEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)

set(KW_WINE_ROOT ${CMAKE_BINARY_DIR}/wine)

# kw_add_wine_test(NAME <name> SOURCES <files...> [LIBS <libs...>]
#                  [WINE_PREFIX <prefix>] [DEPENDS <targets...>] [TIMEOUT <s>] [DISPLAY])
# Builds <name>.exe against gtest_main and registers it as one ctest test run
# under Wine. Tests sharing a prefix share one wineserver and registry; give a
# test that changes the registry a prefix of its own. DISPLAY runs it on a
# virtual X display of its own (give it a prefix of its own too).
function(kw_add_wine_test)
  cmake_parse_arguments(T "DISPLAY" "NAME;WINE_PREFIX;TIMEOUT" "SOURCES;LIBS;DEPENDS" ${ARGN})
  if(NOT T_WINE_PREFIX)
    set(T_WINE_PREFIX shared)
  endif()
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 300)
  endif()
  add_executable(${T_NAME} ${T_SOURCES})
  target_link_libraries(${T_NAME} PRIVATE gtest_main kwhost ${T_LIBS})
  target_include_directories(${T_NAME} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support ${PROJECT_SOURCE_DIR})
  set(emulator ${PROJECT_SOURCE_DIR}/cmake/wine-run.sh --prefix ${T_WINE_PREFIX})
  if(T_DISPLAY)
    list(APPEND emulator --display)
  endif()
  set_property(TARGET ${T_NAME} PROPERTY CROSSCOMPILING_EMULATOR "${emulator}")
  if(T_DEPENDS)
    add_dependencies(${T_NAME} ${T_DEPENDS})
  endif()
  add_test(NAME ${T_NAME} COMMAND ${T_NAME})
  # Under Wine a crash after COM has started its threads may end the process
  # with exit code 0: GoogleTest's summary decides instead.
  set_tests_properties(${T_NAME} PROPERTIES
    PASS_REGULAR_EXPRESSION "\\[  PASSED  \\] [0-9]+ tests?\\."
    FAIL_REGULAR_EXPRESSION "\\[  FAILED  \\]"
    TIMEOUT ${T_TIMEOUT}
    ENVIRONMENT "KW_WINE_ROOT=${KW_WINE_ROOT}"
    WORKING_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
endfunction()

# kw_add_qt_skip_notice(<name> <what>): without a Qt 4.8 SDK, one test that
# says which tests (<what>) were left out and why; ctest shows it as skipped.
function(kw_add_qt_skip_notice name what)
  add_test(NAME ${name} COMMAND ${CMAKE_COMMAND} -E echo
           "SKIPPED: ${what} need a Qt 4.8 SDK (-DKW_QT_SDK=<folder> or ../shared/qt48-sdk)")
  set_tests_properties(${name} PROPERTIES SKIP_REGULAR_EXPRESSION "SKIPPED")
endfunction()
