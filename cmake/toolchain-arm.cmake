# 32-bit ARM with hardware floating point. GCC 7 changed a detail of its ABI, which GCC notes.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(triplet arm-linux-gnueabihf)
set(machine_flags "-Wno-psabi")
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
