# Packs the maps, run in their folder: sorted and at a fixed time, so that the archive is always the
# same. Takes the archive's name as TP_ARCHIVE.
file(GLOB files LIST_DIRECTORIES false RELATIVE ${CMAKE_CURRENT_BINARY_DIR} */tp_erase*)
file(ARCHIVE_CREATE OUTPUT ${TP_ARCHIVE} PATHS ${files} FORMAT zip MTIME "2000-01-01 00:00:00 UTC")
