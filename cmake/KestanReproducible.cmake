# The same sources make the same programs and the same package, on any day: the times in them
# are those of SOURCE_DATE_EPOCH, by default the date of this version's release. It is one
# variable for all of a build: a project that adds this one sets it for itself.

if(PROJECT_IS_TOP_LEVEL AND NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(
        COMMAND date --utc "--date=${KESTAN_RELEASE_DATE} 12:00" +%s
        OUTPUT_VARIABLE epoch OUTPUT_STRIP_TRAILING_WHITESPACE
        COMMAND_ERROR_IS_FATAL ANY)
    set(ENV{SOURCE_DATE_EPOCH} ${epoch})
endif()
