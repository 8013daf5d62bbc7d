# A compiler cache keeps what it has compiled, and cannot look into precompiled headers.
if(CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_DISABLE_PRECOMPILE_HEADERS ON)
endif()

# Headers that the sources of several test programs include, compiled once: their targets reuse them from `name`.
function(ccu_precompiled name)
    cmake_parse_arguments(ARG "" "" "HEADERS;LINK" ${ARGN})
    set(source ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp)
    file(CONFIGURE OUTPUT ${source} CONTENT "int main() { return 0; }\n")
    add_executable(${name} EXCLUDE_FROM_ALL ${source})
    target_link_libraries(${name} PRIVATE ${ARG_LINK} ccu_test_options)
    target_precompile_headers(${name} PRIVATE ${ARG_HEADERS})
endfunction()
