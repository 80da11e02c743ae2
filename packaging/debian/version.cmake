# KESTAN_PACKAGE_VERSION: the version of the Debian package. If there are commits after the one
# that set this version's number, the last one's time and hash are a part of it, as in
# 2.10.1+git20261125.143000.abcdef-1: each build replaces the one before. A tree without git
# has none.

# git_says(<variable> <argument>...): sets the variable to what git prints, or to nothing if it
# fails. The tree may belong to the user who called sudo.
function(git_says variable)
    execute_process(
        COMMAND ${CMAKE_COMMAND} -E env TZ=UTC ${GIT_EXECUTABLE} -c safe.directory=* ${ARGN}
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
        OUTPUT_VARIABLE output OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    set(${variable} "${output}" PARENT_SCOPE)
endfunction()

set(KESTAN_PACKAGE_VERSION ${PROJECT_VERSION})
find_package(Git QUIET)
if(GIT_FOUND AND EXISTS ${PROJECT_SOURCE_DIR}/.git)
    git_says(head log -1 --format=%H)
    git_says(numbered log -1 --format=%H "-SVERSION ${PROJECT_VERSION}\n" -- CMakeLists.txt)
    git_says(is_shallow rev-parse --is-shallow-repository)  # its first commit has everything
    if(NOT head STREQUAL numbered OR is_shallow STREQUAL "true")
        git_says(commit log -1 --format=%cd.%h --abbrev=6 --date=format-local:%Y%m%d.%H%M%S)
        string(APPEND KESTAN_PACKAGE_VERSION +git${commit})
    endif()
endif()
string(APPEND KESTAN_PACKAGE_VERSION -${KESTAN_PACKAGE_REVISION})
