# Debian's compilers say where libraries belong (lib/x86_64-linux-gnu); its packages have them there, and its linker
# looks for them there, in /usr/local too. To be included before GNUInstallDirs, which would say "lib".
if(CMAKE_LIBRARY_ARCHITECTURE AND NOT DEFINED CMAKE_INSTALL_LIBDIR)
    set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Object code libraries")
endif()

# The folder of the build does not show in programs, so that packages are the same wherever they are made.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
