# What `cmake --install` puts where, and in which package (see Packages.cmake).
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
# Hosts load libtp_Erase.so by this name, so the link is needed at run time.
install(TARGETS ${TP_INSTALLED_LIBRARIES} EXPORT tp_EraseTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libtp-erase1 NAMELINK_COMPONENT libtp-erase1
        INCLUDES DESTINATION ${TP_INCLUDE_FOLDER})
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME libtp-erase-dev)
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
    set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME transitions)
    install(TARGETS transitions RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(FILES ${TP_PROGRAM_FILES}/transitions.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    install(FILES ${TP_PROGRAM_FILES}/transitions.bash RENAME transitions
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    install(FILES ${TP_PROGRAM_FILES}/_transitions
            DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
endif()
