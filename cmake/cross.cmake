# What the toolchain files share: Debian's cross compiler and libraries. Programs of the build run
# under qemu-user; the shell and client that they start run natively.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR
  ${CMAKE_CURRENT_LIST_DIR}/emulate ${CMAKE_SYSTEM_PROCESSOR} /usr/${triplet})

# Time that goes on after 2038.
foreach(language C CXX)
  set(CMAKE_${language}_FLAGS_INIT "${machine_flags} -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64")
endforeach()
set(CORVANTA_HAS_NODYNAMIC_UNDEFINED_WEAK OFF) # the linkers know the option and ignore it

# No package of this machine is one for the other.
set(CMAKE_FIND_ROOT_PATH /usr/${triplet})
set(ENV{PKG_CONFIG_LIBDIR} /usr/${triplet}/lib/pkgconfig)
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
