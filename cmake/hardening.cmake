# What makes a fault in a released program harder to use. Position-independent code is the default
# of Debian's and Ubuntu's compilers.
set(RS232_HARDENING
    $<$<CONFIG:Release>:-fstack-protector-strong>
    $<$<CONFIG:Release>:-U_FORTIFY_SOURCE>
    $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
add_link_options($<$<CONFIG:Release>:LINKER:-z,relro,-z,now>)
