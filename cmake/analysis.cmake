# Static analysis of src/, sim/ and tools/ in the preset `analysis`. Warnings are errors.
#   tidy       clang-tidy with the checks of .clang-tidy; fewer in sim/ and tools/
#   tidy_src   clang-tidy of src/ only, in a fifth of the time
#   cppcheck   all findings except those in .cppcheck-suppressions, each with its reason
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
