# Puts what is committed where cpack makes an archive of it.
set(archive ${CMAKE_INSTALL_PREFIX}/committed.tar)
execute_process(COMMAND git -C ${CPACK_TP_SOURCE_FOLDER} archive -o ${archive} HEAD
                COMMAND_ERROR_IS_FATAL ANY)
file(ARCHIVE_EXTRACT INPUT ${archive} DESTINATION ${CMAKE_INSTALL_PREFIX})
file(REMOVE ${archive})
