# Packs the maps, run in their folder: sorted, at a fixed time and without the times of this machine
# that CMake's own archives keep, so that the archive is always the same. Takes the archive's name as
# TP_ARCHIVE.
file(GLOB files LIST_DIRECTORIES false RELATIVE ${CMAKE_CURRENT_BINARY_DIR} */tp_erase*)
set(copies ${TP_ARCHIVE}.files)
file(REMOVE_RECURSE ${TP_ARCHIVE} ${copies})
foreach(file IN LISTS files)
    get_filename_component(folder ${file} DIRECTORY)
    file(COPY ${file} DESTINATION ${copies}/${folder})
endforeach()
foreach(command IN ITEMS "touch;-d;2000-01-01 UTC" "env;TZ=UTC;zip;-X;-q;-9;${TP_ARCHIVE}")
    execute_process(COMMAND ${command} ${files} WORKING_DIRECTORY ${copies} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
file(REMOVE_RECURSE ${copies})
