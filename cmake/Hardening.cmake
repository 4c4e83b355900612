# Hardening of the library, the agent and the device, as part of the flags that all of them share.
# scripts/check-build looks for it in the built files.
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)
include(CheckPIESupported)

# Programs that can be loaded anywhere.
check_pie_supported(LANGUAGES C CXX)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

target_compile_options(corvanta_flags INTERFACE -fstack-protector-strong)
check_cxx_compiler_flag(-fstack-clash-protection CORVANTA_HAS_STACK_CLASH_PROTECTION)
if(CORVANTA_HAS_STACK_CLASH_PROTECTION)
  target_compile_options(corvanta_flags INTERFACE -fstack-clash-protection)
endif()
target_link_options(corvanta_flags INTERFACE LINKER:-z,now LINKER:-z,noexecstack)
# MIPS aligns the read-only part to 64 KiB, half as much again as the library itself.
if(NOT CMAKE_SYSTEM_PROCESSOR MATCHES "^mips")
  target_link_options(corvanta_flags INTERFACE LINKER:-z,relro)
endif()

# Checked forms of the C library's functions need an optimizer, and hide calls from sanitizers.
string(TOUPPER "${CMAKE_BUILD_TYPE}" config)
set(flags "${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_${config}}")
set(CORVANTA_HARDENED OFF)
if(flags MATCHES "-O[1-3sz]" AND NOT flags MATCHES "-fsanitize")
  set(CORVANTA_HARDENED ON)
  target_compile_definitions(corvanta_flags INTERFACE _FORTIFY_SOURCE=2)
  # A host that replaces syslog() gets every line: the checked form would go past it.
  set_source_files_properties(base/Log.cpp PROPERTIES COMPILE_OPTIONS -U_FORTIFY_SOURCE)

  # Pays for the above: without hooks for tools that the library does not work with (transactional
  # memory, gprof) its tables fit into one page less.
  check_linker_flag(CXX LINKER:-z,nodynamic-undefined-weak CORVANTA_HAS_NODYNAMIC_UNDEFINED_WEAK)
  if(CORVANTA_HAS_NODYNAMIC_UNDEFINED_WEAK)
    target_link_options(corvanta_flags INTERFACE
      $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,SHARED_LIBRARY>:LINKER:-z,nodynamic-undefined-weak>)
  endif()
endif()
