# How every target of this tree is compiled. Our targets link kestan_options;
# generated code does not, so that our warnings do not apply to it.

# A project that adds this one with add_subdirectory() chooses for itself.
get_property(multi_config GLOBAL PROPERTY GENERATOR_IS_MULTI_CONFIG)
if(PROJECT_IS_TOP_LEVEL AND NOT multi_config AND NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Type of build" FORCE)
endif()

# The intrusive lists report misuse through assert(). So assert() stays on in a release: a
# stream that is destroyed while it is registered stops the process and corrupts no list.
foreach(type IN ITEMS RELEASE RELWITHDEBINFO MINSIZEREL)
    string(REPLACE "-DNDEBUG" "" CMAKE_CXX_FLAGS_${type} "${CMAKE_CXX_FLAGS_${type}}")
endforeach()

# Defaults: a later standard may be given.
if(NOT CMAKE_CXX_STANDARD)
    set(CMAKE_CXX_STANDARD 17)
endif()
if(NOT DEFINED CMAKE_CXX_EXTENSIONS)
    set(CMAKE_CXX_EXTENSIONS OFF)
endif()
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)

# An installed program finds a library that is outside the system's folders, such as a
# device's framework, where it was linked.
if(NOT DEFINED CMAKE_INSTALL_RPATH_USE_LINK_PATH)
    set(CMAKE_INSTALL_RPATH_USE_LINK_PATH ON)
endif()

# Assertions name their file: relative to this tree, wherever it was built.
add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)

# A third of the program would be generated code that nobody calls. The linker removes it.
add_compile_options(-ffunction-sections -fdata-sections)
add_link_options(-Wl,--as-needed -Wl,--gc-sections)

# A time_t of 64 bits everywhere: one of 32 ends in 2038.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

set(KESTAN_SANITIZE "" CACHE STRING "Sanitizers to build with, as in -fsanitize=…")
if(KESTAN_SANITIZE)
    # The sanitizers' instrumentation makes GCC see uninitialized values where there are none.
    # Their reports need line numbers only; the full debugging information of -g takes a
    # quarter of the build.
    add_compile_options(-fsanitize=${KESTAN_SANITIZE} -fno-sanitize-recover=all
        -fno-omit-frame-pointer -g1 $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    add_link_options(-fsanitize=${KESTAN_SANITIZE})
endif()

if(KESTAN_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link  # libFuzzer sees what is covered
        -fsanitize-ignorelist=${PROJECT_SOURCE_DIR}/fuzz/ignored.txt)
endif()

# Every build has the flags of dpkg-buildflags with hardening=+all. The sanitizers replace
# them, and _FORTIFY_SOURCE needs an optimised build. Some compilers and packagers define it.
if(NOT KESTAN_SANITIZE)
    add_compile_options(-fPIE -fstack-protector-strong -Wformat -Wformat-security)
    add_link_options(-pie -Wl,-z,relro -Wl,-z,now)
    include(CheckCXXSourceCompiles)
    get_directory_property(given_options COMPILE_OPTIONS)
    get_directory_property(given_definitions COMPILE_DEFINITIONS)
    set(CMAKE_REQUIRED_FLAGS ${CMAKE_CXX_FLAGS_RELEASE})
    check_cxx_source_compiles("int main() { return _FORTIFY_SOURCE; }" KESTAN_IS_FORTIFIED)
    unset(CMAKE_REQUIRED_FLAGS)
    if(NOT KESTAN_IS_FORTIFIED
            AND NOT "${given_options};${given_definitions}" MATCHES "_FORTIFY_SOURCE")
        add_compile_options(
            $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-D_FORTIFY_SOURCE=2>)
    endif()
endif()

# Off by default: a newer compiler's new warning must not stop someone who packages Kestan.
option(KESTAN_WERROR "Treat warnings as errors" OFF)

add_library(kestan_options INTERFACE)
target_compile_options(kestan_options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow $<$<BOOL:${KESTAN_WERROR}>:-Werror>
    # GCC before version 12 does not know [[maybe_unused]] on a member.
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,12>>:-Wno-attributes>)
if(CMAKE_CXX_STANDARD GREATER 17)
    # With C++20, GCC 12 sees overlapping copies in std::string where there are none.
    target_compile_options(kestan_options INTERFACE
        $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
endif()
target_include_directories(kestan_options INTERFACE ${PROJECT_SOURCE_DIR})
