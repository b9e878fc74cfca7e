# Read by cpack before it makes packages. All times in them are that of the commit, so that they
# come out the same whenever they are made. A source archive has no commits, but the time of its own
# in CommitTime.
file(STRINGS ${CPACK_TP_SOURCE_FOLDER}/Packaging/CommitTime commit_time)
if(NOT commit_time MATCHES "^[0-9]+$")
    execute_process(COMMAND git -C ${CPACK_TP_SOURCE_FOLDER} log -1 --format=%ct
                    OUTPUT_VARIABLE commit_time OUTPUT_STRIP_TRAILING_WHITESPACE
                    COMMAND_ERROR_IS_FATAL ANY)
endif()
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    set(ENV{SOURCE_DATE_EPOCH} ${commit_time})
endif()
