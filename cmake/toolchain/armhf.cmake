# Units of 32-bit ARM with a floating point unit, by the cross compiler and the libraries of Debian.
set(CCU_TRIPLET arm-linux-gnueabihf)
set(CMAKE_SYSTEM_PROCESSOR arm)
include(${CMAKE_CURRENT_LIST_DIR}/DebianCross.cmake)
