# Makes the source archive. git sorts what it holds and gives it the time of the commit; cpack by
# itself takes the order of the folder and the time of now.
set(archive ${CPACK_TEMPORARY_DIRECTORY}/${CPACK_PACKAGE_FILE_NAME}.tar)
execute_process(COMMAND git -C ${CPACK_TP_SOURCE_FOLDER} -c tar.umask=0022 archive
                        --prefix=${CPACK_PACKAGE_FILE_NAME}/ -o ${archive} HEAD
                COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND xz -T1 ${archive} COMMAND_ERROR_IS_FATAL ANY)
set(CPACK_EXTERNAL_BUILT_PACKAGES ${archive}.xz)
