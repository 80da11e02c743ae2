# kestan_thrift_library(<target> DEFINITIONS <file.thrift>... GENERATES <unit>...)
#
# Makes a static library of the C++ that the Thrift compiler generates from the definitions:
# <unit>.cpp and <unit>.h for each unit. The headers are included as "thrift/<unit>.h" and
# count as system headers: the compiler does not warn about them.

find_program(THRIFT_COMPILER thrift REQUIRED)

function(kestan_thrift_library target)
    cmake_parse_arguments(ARG "" "" "DEFINITIONS;GENERATES" ${ARGN})
    set(out ${PROJECT_BINARY_DIR}/generated/thrift)
    file(MAKE_DIRECTORY ${out})

    list(TRANSFORM ARG_GENERATES REPLACE "(.+)" "${out}/\\1.cpp" OUTPUT_VARIABLE sources)
    list(TRANSFORM ARG_GENERATES REPLACE "(.+)" "${out}/\\1.h" OUTPUT_VARIABLE headers)
    set(commands)
    foreach(definition IN LISTS ARG_DEFINITIONS)
        list(APPEND commands COMMAND ${THRIFT_COMPILER} --gen cpp:no_skeleton -out ${out}
            ${CMAKE_CURRENT_SOURCE_DIR}/${definition})
    endforeach()
    add_custom_command(
        OUTPUT ${sources} ${headers}
        ${commands}
        DEPENDS ${ARG_DEFINITIONS}
        COMMENT "Generating C++ from the service definitions"
        VERBATIM)

    add_library(${target} STATIC ${sources})
    target_include_directories(${target} SYSTEM INTERFACE ${PROJECT_BINARY_DIR}/generated)
    target_link_libraries(${target} PUBLIC PkgConfig::THRIFT)
endfunction()
