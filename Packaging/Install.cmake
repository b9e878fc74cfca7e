# What `cmake --install` puts where, and the Debian package that `cpack` makes of it.
include(CMakePackageConfigHelpers)

set(TP_INCLUDE_FOLDER ${CMAKE_INSTALL_INCLUDEDIR}/tp_Erase)
set(TP_CMAKE_FOLDER ${CMAKE_INSTALL_LIBDIR}/cmake/tp_Erase)

# The stand-ins go along unless the host brings its own libraries.
set(TP_INSTALLED_LIBRARIES tp_Erase)
foreach(library IN ITEMS Ozmu_ImageProc VeskLogger)
    get_target_property(is_imported ${library} IMPORTED)
    if(NOT is_imported)
        list(APPEND TP_INSTALLED_LIBRARIES ${library})
    endif()
endforeach()
# Headers come from the source tree here and from the include folder once installed.
foreach(library IN LISTS TP_INSTALLED_LIBRARIES)
    get_target_property(folder ${library} INTERFACE_INCLUDE_DIRECTORIES)
    set_property(TARGET ${library} PROPERTY INTERFACE_INCLUDE_DIRECTORIES
                 $<BUILD_INTERFACE:${folder}>)
endforeach()
# The plug-in finds the libraries beside it, wherever the installation is moved.
set_property(TARGET tp_Erase PROPERTY INSTALL_RPATH "$ORIGIN")
install(TARGETS ${TP_INSTALLED_LIBRARIES} EXPORT tp_EraseTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${TP_INCLUDE_FOLDER})
install(FILES Src/Externlib/Transitions/tp_Erase/tp_Erase.h
              Src/Externlib/Ozmu_ImageProc/Ozmu_ImageProc.h
              Src/Externlib/libVeskLogger/VeskLogger.h
        DESTINATION ${TP_INCLUDE_FOLDER})

install(EXPORT tp_EraseTargets NAMESPACE tp_Erase:: DESTINATION ${TP_CMAKE_FOLDER})
configure_package_config_file(Packaging/tp_EraseConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/tp_EraseConfig.cmake
                              INSTALL_DESTINATION ${TP_CMAKE_FOLDER}
                              PATH_VARS CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file(tp_EraseConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tp_EraseConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/tp_EraseConfigVersion.cmake
        DESTINATION ${TP_CMAKE_FOLDER})

# Folders relative to the file itself, so that the installation can be moved.
set(TP_PKGCONFIG_FOLDER ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH TP_PKGCONFIG_TO_PREFIX /${TP_PKGCONFIG_FOLDER}/ /)
string(REGEX REPLACE "/$" "" TP_PKGCONFIG_TO_PREFIX ${TP_PKGCONFIG_TO_PREFIX})
configure_file(Packaging/tp_Erase.pc.in tp_Erase.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tp_Erase.pc DESTINATION ${TP_PKGCONFIG_FOLDER})

if(TP_BUILD_HOST)
    file(RELATIVE_PATH TP_BIN_TO_LIB /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
    set_property(TARGET transitions PROPERTY INSTALL_RPATH "$ORIGIN/${TP_BIN_TO_LIB}")
    install(TARGETS transitions RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(FILES Docs/transitions.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tp-erase)
set(CPACK_PACKAGE_VENDOR "tp_Erase")
set(CPACK_PACKAGE_CONTACT "tp_Erase maintainers <tp-erase@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Video transitions as a plug-in library and a program")
set(CPACK_PACKAGE_DESCRIPTION
    "Transitions between two video frames, planar and packed, in a plug-in
library for video editors, and a program that renders them between clips and
still pictures.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Libraries of the package itself are in no other package.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
# The labels of contact sheets.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS fonts-dejavu-core)
include(CPack)
