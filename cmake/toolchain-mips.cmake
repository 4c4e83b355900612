# 32-bit big-endian MIPS.
set(CMAKE_SYSTEM_PROCESSOR mips)
set(triplet mips-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
