if(CPACK_KESTAN_CROSS)
    message(FATAL_ERROR "A cross build makes no package: dpkg-shlibdeps knows the libraries "
        "of this machine's architecture alone. Build the package on the other architecture, "
        "or use `cmake --install`.")
endif()

# Without it, cpack would make a package without dependencies.
find_program(SHLIBDEPS dpkg-shlibdeps)
if(NOT SHLIBDEPS)
    message(FATAL_ERROR "dpkg-shlibdeps is missing: install dpkg-dev")
endif()

# Gives the package's files the time of the build, see cmake/KestanReproducible.cmake.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    set(ENV{SOURCE_DATE_EPOCH} ${CPACK_KESTAN_EPOCH})
endif()
