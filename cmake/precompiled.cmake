# Precompiled headers, which save a third of the build time. Off with ccache, which already caches
# unchanged files. Every file still includes all the headers that it uses, since builds without
# precompiled headers need them.
set(default ON)
if(CMAKE_CXX_COMPILER_LAUNCHER MATCHES "ccache")
  set(default OFF)
endif()
option(RS232_PCH "Precompile headers" ${default})

# With precompiled headers, g++ 12 does not recognize system headers and warns about bounds in
# std::string.
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

# rs232_precompile_as(OWNER TARGET...): the targets reuse the precompiled headers of OWNER and must
# have the same compile options.
function(rs232_precompile_as owner)
  if(RS232_PCH)
    foreach(target ${ARGN})
      target_precompile_headers(${target} REUSE_FROM ${owner})
    endforeach()
  endif()
endfunction()
