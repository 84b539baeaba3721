# What makes a fault in a released program harder to use. Position-independent code is the default
# of Debian's and Ubuntu's compilers.
set(RS232_HARDENING $<$<CONFIG:Release>:-fstack-protector-strong>)
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
  list(APPEND RS232_HARDENING $<$<CONFIG:Release>:-U_FORTIFY_SOURCE>
       $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
else()
  # The C library's fortified ppoll takes times of 32 bits even where _TIME_BITS says 64: a wait of
  # less than a second would be none. Some compilers fortify unasked.
  add_compile_options(-U_FORTIFY_SOURCE)
endif()
add_link_options($<$<CONFIG:Release>:LINKER:-z,relro,-z,now>)
