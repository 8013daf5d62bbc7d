# What all toolchains of Debian's cross compilers have in common; CCU_TRIPLET says which it is. Of what is built by
# them tests alone are run, in an emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_LIBRARY_ARCHITECTURE ${CCU_TRIPLET})
set(CMAKE_C_COMPILER ${CCU_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${CCU_TRIPLET}-g++)
set(PKG_CONFIG_EXECUTABLE ${CCU_TRIPLET}-pkg-config)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${CMAKE_SYSTEM_PROCESSOR}-static)
