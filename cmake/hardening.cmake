# Compiler and linker options that make faults in a release harder to exploit and stop the program
# at the first sign of one.
include(CheckCXXCompilerFlag)

set(RS232_HARDENING $<$<CONFIG:Release>:-fPIE> $<$<CONFIG:Release>:-fstack-protector-strong>
                    $<$<CONFIG:Release>:-D_GLIBCXX_ASSERTIONS>)
# Use only the options that the compiler supports on this processor.
foreach(flag -fstack-clash-protection -fcf-protection -mbranch-protection=standard
             -ftrivial-auto-var-init=zero)
  string(MAKE_C_IDENTIFIER "RS232_HAS${flag}" has_flag)
  check_cxx_compiler_flag("-Werror ${flag}" ${has_flag})
  if(${has_flag})
    list(APPEND RS232_HARDENING $<$<CONFIG:Release>:${flag}>)
  endif()
endforeach()
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
  list(APPEND RS232_HARDENING $<$<CONFIG:Release>:-U_FORTIFY_SOURCE>
       $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
else()
  # Undo the fortification that some compilers enable by default: the C library's fortified ppoll
  # uses a 32-bit time_t even with _TIME_BITS=64, so a wait of less than a second would return at
  # once.
  add_compile_options(-U_FORTIFY_SOURCE)
endif()
add_link_options($<$<CONFIG:Release>:LINKER:-z,relro,-z,now>)
set(RS232_HARDENING_LINK $<$<CONFIG:Release>:-pie>)
