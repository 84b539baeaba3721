# Static analysis of src/, sim/ and tools/, in the preset `analysis`. A warning is an error.
#   tidy       clang-tidy by .clang-tidy; sim/ and tools/ have fewer checks
#   tidy_src   the same of src/ only, a fifth of the time
#   cppcheck   every finding but those of .cppcheck-suppressions, which says why
add_custom_target(tidy
  COMMAND run-clang-tidy -quiet -p ${CMAKE_BINARY_DIR} "${CMAKE_SOURCE_DIR}/(src|sim|tools)/.*"
  WORKING_DIRECTORY ${CMAKE_SOURCE_DIR} VERBATIM)

add_custom_target(tidy_src
  COMMAND run-clang-tidy -quiet -p ${CMAKE_BINARY_DIR} "${CMAKE_SOURCE_DIR}/src/.*"
  WORKING_DIRECTORY ${CMAKE_SOURCE_DIR} VERBATIM)

add_custom_target(cppcheck
  COMMAND cppcheck --quiet --std=c++20 --language=c++ -I src -I . --error-exitcode=1
          --enable=warning,performance,portability,style --inline-suppr
          --suppressions-list=.cppcheck-suppressions src sim tools
  WORKING_DIRECTORY ${CMAKE_SOURCE_DIR} VERBATIM)
