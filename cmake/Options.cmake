# One place for what every target of the tree is built with.
add_library(ccu_options INTERFACE)
target_include_directories(ccu_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(ccu_options INTERFACE -Wall -Wextra -Wpedantic $<$<BOOL:${CCU_WERROR}>:-Werror>)

# Where the C library's moments and file sizes have 32 bits by themselves, they would end in 2038 and at 2 GiB. What
# shares memory with a library that knows nothing of this is a target of its own with the property CCU_TIME_OF_LIBRARIES:
# it has moments as the toolchain makes them, which is how the libraries beside it are built.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    target_compile_definitions(ccu_options INTERFACE
        $<$<NOT:$<BOOL:$<TARGET_PROPERTY:CCU_TIME_OF_LIBRARIES>>>:_TIME_BITS=64;_FILE_OFFSET_BITS=64>)
endif()

# What is shipped is hardened as the distribution's own programs are, and against stack clashes besides. Nothing else:
# _FORTIFY_SOURCE needs optimisation and blinds sanitizers.
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT CCU_SANITIZE)
    set(CCU_HARDENED ON)
    include(CheckPIESupported)
    check_pie_supported(LANGUAGES C CXX)
    set(CMAKE_POSITION_INDEPENDENT_CODE ON)
    target_compile_options(ccu_options INTERFACE -fstack-protector-strong -fstack-clash-protection -Wformat
                                                 -Werror=format-security -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    target_link_options(ccu_options INTERFACE -Wl,-z,relro,-z,now)
endif()

# A sixth smaller than with CMake's own -O3, and no slower: docs/performance.md. The pixel loops are vectors by hand.
# What a program does not use of its libraries is left out of it.
# What a stack of a core needs, functions and lines, goes into packages of its own, and names no folder of this machine,
# not even that of the build in the tree: of several maps the compiler takes the last that fits.
foreach(language IN ITEMS C CXX)
    string(REPLACE "-O3" "-O2" CMAKE_${language}_FLAGS_RELEASE "${CMAKE_${language}_FLAGS_RELEASE} -g1")
endforeach()
target_compile_options(ccu_options INTERFACE
    $<$<CONFIG:Release>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.;-ffile-prefix-map=${PROJECT_BINARY_DIR}=.>)
target_link_options(ccu_options INTERFACE $<$<CONFIG:Release>:-Wl,--build-id=sha1>)
target_compile_options(ccu_options INTERFACE $<$<CONFIG:Release>:-ffunction-sections;-fdata-sections>)
target_link_options(ccu_options INTERFACE $<$<CONFIG:Release>:-Wl,--gc-sections>)

if(CCU_SANITIZE)
    # Many sources at a time: what sanitizers know of each check would otherwise be there once for every source that has
    # the same template, is searched for leaks at the end of every program, and most of what is compiled.
    set(CMAKE_UNITY_BUILD ON)
    set(CMAKE_UNITY_BUILD_BATCH_SIZE 20)
    target_compile_options(ccu_options INTERFACE
        $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-subobject-linkage>) # no source is a header, though another includes it
    target_compile_options(ccu_options INTERFACE -fsanitize=${CCU_SANITIZE} -fno-omit-frame-pointer
                                                 -fno-sanitize-recover=all)
    # What sanitizers add to a program is mostly addresses: at a fixed place they need no relocation at every start.
    target_link_options(ccu_options INTERFACE -fsanitize=${CCU_SANITIZE}
                                              $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-no-pie>)
endif()

if(CCU_COVERAGE)
    target_compile_options(ccu_options INTERFACE --coverage -fno-inline)
    target_link_options(ccu_options INTERFACE --coverage)
endif()

# First in a program's link line: the loader looks for each name that any library uses in one library after the other, in
# the order of the program's list, and these two have most of them. The C library would be the last by itself, behind all
# that the daemon is linked to, which is a sixth of the loader's work. Sanitizers have libraries that must come before it.
set(CCU_FIRST stdc++)
if(NOT CCU_SANITIZE)
    list(APPEND CCU_FIRST -Wl,--push-state,--no-as-needed,-l:libc.so.6,--pop-state)
endif()

# One static library a folder: the tree's rooms are its targets, and their link lines are its arrows.
function(ccu_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_link_libraries(${name} PUBLIC ${ARG_LINK} PRIVATE ccu_options)
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
endfunction()
