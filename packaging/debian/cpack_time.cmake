# The time of the package's files: that of the build, see cmake/KestanReproducible.cmake.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    set(ENV{SOURCE_DATE_EPOCH} ${CPACK_KESTAN_EPOCH})
endif()
