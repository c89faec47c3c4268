# The WebDriver side's libraries, unpacked by scripts/ensure-sources.sh:
#   kw_json     nlohmann-json (header only)
#   kw_httplib  cpp-httplib's single header, with TCP_NODELAY (without it
#               Nagle's algorithm meets delayed acknowledgements: ~40 ms a
#               keep-alive request)
#   kw_pugixml  pugixml, built from its sources (XML and XPath 1.0)
set(KW_DEPS_DIR ${PROJECT_SOURCE_DIR}/.deps CACHE PATH "Folder of scripts/ensure-sources.sh")
if(NOT EXISTS ${KW_DEPS_DIR}/include/httplib.h OR NOT EXISTS ${KW_DEPS_DIR}/pugixml/src/pugixml.cpp)
  message(STATUS "No third-party sources in ${KW_DEPS_DIR} (scripts/ensure-sources.sh): the WebDriver server is left out")
  return()
endif()

add_library(kw_json INTERFACE)
target_include_directories(kw_json SYSTEM INTERFACE ${KW_DEPS_DIR}/include)

add_library(kw_httplib INTERFACE)
target_include_directories(kw_httplib SYSTEM INTERFACE ${KW_DEPS_DIR}/include)
target_compile_definitions(kw_httplib INTERFACE CPPHTTPLIB_TCP_NODELAY=true)
target_link_libraries(kw_httplib INTERFACE ws2_32 crypt32)

add_library(kw_pugixml STATIC ${KW_DEPS_DIR}/pugixml/src/pugixml.cpp)
target_include_directories(kw_pugixml SYSTEM PUBLIC ${KW_DEPS_DIR}/pugixml/src)
target_compile_options(kw_pugixml PRIVATE -w)
