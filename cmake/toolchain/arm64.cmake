# Units of 64-bit ARM, by the cross compiler and the libraries of Debian.
set(CCU_TRIPLET aarch64-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/DebianCross.cmake)
