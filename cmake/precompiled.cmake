# Headers that nearly every file of a folder reads, compiled once: a third of a build's time. Not
# behind ccache, which knows the files of the last build anyway. A file still includes all that it
# uses: builds without this would not compile otherwise.
set(default ON)
if(CMAKE_CXX_COMPILER_LAUNCHER MATCHES "ccache")
  set(default OFF)
endif()
option(RS232_PCH "Precompile headers" ${default})

# g++ 12 no longer sees that a line is of a system header, and warns of bounds within std::string.
set(RS232_PCH_OPTIONS "")
if(RS232_PCH AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  set(RS232_PCH_OPTIONS -Wno-array-bounds -Wno-restrict -Wno-stringop-overflow)
endif()

# rs232_precompile(TARGET HEADER...)
function(rs232_precompile target)
  if(RS232_PCH)
    target_precompile_headers(${target} PRIVATE ${ARGN})
  endif()
endfunction()

# rs232_precompile_as(OWNER TARGET...): the targets take what OWNER precompiles; they have to have
# its options.
function(rs232_precompile_as owner)
  if(RS232_PCH)
    foreach(target ${ARGN})
      target_precompile_headers(${target} REUSE_FROM ${owner})
    endforeach()
  endif()
endfunction()
