# Flags of every target: the warnings and the selected sanitizers.
add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(RS232_WERROR)
  add_compile_options(-Werror)
endif()
if(RS232_COVERAGE)
  add_link_options(--coverage)
endif()
if(RS232_SANITIZE)
  add_compile_options(-fsanitize=${RS232_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${RS232_SANITIZE})
  # g++ mistakes code of the sanitizers for uses of uninitialized values.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
endif()
