# What all toolchains of Debian's cross compilers have in common; CCU_TRIPLET says which it is. Nothing that is built by
# them is run.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_LIBRARY_ARCHITECTURE ${CCU_TRIPLET})
set(CMAKE_C_COMPILER ${CCU_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${CCU_TRIPLET}-g++)
set(PKG_CONFIG_EXECUTABLE ${CCU_TRIPLET}-pkg-config)
