# 32-bit big-endian MIPS, in the instructions that every chip has. It has no check of large stack
# frames, and debuggers alone use what mno-pdr leaves out.
set(CMAKE_SYSTEM_PROCESSOR mips)
set(triplet mips-linux-gnu)
set(machine_flags "-Wa,-mno-pdr")
set(CORVANTA_HAS_STACK_CLASH_PROTECTION OFF)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
