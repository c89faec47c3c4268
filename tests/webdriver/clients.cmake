# kwdriver end to end (included from tests/CMakeLists.txt, so no return()
# here): WebDriver clients against Qt's example applications (KW_QT_APPS),
# each pytest file a test of its own with a kwdriver, a Wine prefix and a
# virtual display of its own; a WebdriverIO test run by mocha; Selenium Grid
# 4 with two drivers behind a hub. The clients (Selenium's Python bindings,
# pytest, Java, WebdriverIO, mocha, the Selenium server jar) are installed
# first by scripts/ensure-clients.sh when missing.
set(KW_QT_APPS ${PROJECT_SOURCE_DIR}/../shared/qt48-apps CACHE PATH "Qt 4.8 example applications to attach to")
if(NOT TARGET kwdriver OR NOT TARGET kwagent OR NOT EXISTS ${KW_QT_APPS}/calculator.exe)
  add_test(NAME webdriver_e2e_skipped COMMAND ${CMAKE_COMMAND} -E echo
           "SKIPPED: the WebDriver end-to-end tests need kwdriver, kwagent (a Qt 4.8 SDK) and Qt's example applications (KW_QT_APPS=${KW_QT_APPS})")
  set_tests_properties(webdriver_e2e_skipped PROPERTIES SKIP_REGULAR_EXPRESSION "SKIPPED")
else()
  set(kw_e2e ${CMAKE_CURRENT_LIST_DIR})
  find_program(KW_SYSTEM_PYTHON python3 PATHS /usr/bin NO_DEFAULT_PATH)
  if(NOT KW_SYSTEM_PYTHON)
    set(KW_SYSTEM_PYTHON /usr/bin/python3)
  endif()

  add_test(NAME webdriver_e2e_clients COMMAND ${PROJECT_SOURCE_DIR}/scripts/ensure-clients.sh --no-browser)
  set_tests_properties(webdriver_e2e_clients PROPERTIES FIXTURES_SETUP webdriver_clients TIMEOUT 900
                       RESOURCE_LOCK kw_apt)

  set(kw_e2e_environment
    "KW_DRIVER_EXE=$<TARGET_FILE:kwdriver>"
    "KW_WINE_ROOT=${CMAKE_BINARY_DIR}/wine"
    "KW_QT_APPS=${KW_QT_APPS}"
    "KW_QT_SDK=${KW_QT_SDK}"
    "KW_BUILD_DIR=${CMAKE_BINARY_DIR}")

  foreach(part calculator lineedits standarddialogs addressbook application calendarwidget configdialog
               execute_script errors sessions grid)
    add_test(NAME webdriver_e2e_${part}
             COMMAND ${KW_SYSTEM_PYTHON} -m pytest -q -rs -p no:cacheprovider ${kw_e2e}/test_${part}.py
             WORKING_DIRECTORY ${kw_e2e})
    set_tests_properties(webdriver_e2e_${part} PROPERTIES
      FIXTURES_REQUIRED webdriver_clients
      ENVIRONMENT "${kw_e2e_environment}"
      SKIP_REGULAR_EXPRESSION "SKIPPED: the WebDriver tests need"
      TIMEOUT 1200)
  endforeach()
  # Three Java processes and four applications: alone.
  set_tests_properties(webdriver_e2e_grid PROPERTIES RUN_SERIAL TRUE)

  add_test(NAME webdriver_e2e_wdio_calculator
           COMMAND ${kw_e2e}/js/node_modules/.bin/mocha --timeout 300000 calculator.test.js
           WORKING_DIRECTORY ${kw_e2e}/js)
  set_tests_properties(webdriver_e2e_wdio_calculator PROPERTIES
    FIXTURES_REQUIRED webdriver_clients
    ENVIRONMENT "${kw_e2e_environment}"
    SKIP_REGULAR_EXPRESSION "SKIPPED: needs"
    TIMEOUT 900)
endif()
