# Rescans the constructors and pure virtual members into the build tree and
# compares with the committed file.
execute_process(COMMAND ${PYTHON} ${SOURCE}/generator/scan_script_members.py --sdk ${SDK}
                        --type-names ${SOURCE}/typelib/catalogue/known_type_names.txt
                        --type-names ${SOURCE}/typelib/qt48more/catalogue/known_type_names.txt
                        --out ${WORK}/script_members.jsonl
                RESULT_VARIABLE status)
if(status EQUAL 2)
  message("castxml or the SDK is missing: SKIPPED")
  cmake_language(EXIT 77)
elseif(NOT status EQUAL 0)
  message(FATAL_ERROR "the scan failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${SOURCE}/typelib/qt48/script_members.jsonl
                        ${WORK}/script_members.jsonl RESULT_VARIABLE different)
if(different)
  message(FATAL_ERROR "typelib/qt48/script_members.jsonl differs from a new scan: run generator/scan_script_members.py")
endif()
