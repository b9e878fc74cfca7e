# The Debian packages that `cpack` makes, one of each component of the installation, and the source
# archive that `cpack --config CPackSourceConfig.cmake` makes.

# Makes a package of a component.
#   SECTION      Debian's section
#   MULTI_ARCH   same or foreign
#   SUMMARY      one line
#   DESCRIPTION  text, in lines shorter than 80 characters
#   DEPENDS      what dpkg-shlibdeps does not see
#   RECOMMENDS, ENHANCES
macro(tp_package name)
    cmake_parse_arguments(package "" "SECTION;MULTI_ARCH;SUMMARY;DESCRIPTION;RECOMMENDS;ENHANCES" "DEPENDS"
                          ${ARGN})
    list(APPEND CPACK_COMPONENTS_ALL ${name})
    string(TOUPPER ${name} id)
    list(JOIN package_DEPENDS ", " depends)
    set(CPACK_DEBIAN_${id}_PACKAGE_NAME ${name})
    # cpack has no field for Multi-Arch before 3.31: it goes along with the section.
    set(CPACK_DEBIAN_${id}_PACKAGE_SECTION "${package_SECTION}\nMulti-Arch: ${package_MULTI_ARCH}")
    set(CPACK_COMPONENT_${id}_DESCRIPTION "${package_SUMMARY}\n${package_DESCRIPTION}")
    set(CPACK_DEBIAN_${id}_PACKAGE_DEPENDS "${depends}")
    set(CPACK_DEBIAN_${id}_PACKAGE_RECOMMENDS "${package_RECOMMENDS}")
    set(CPACK_DEBIAN_${id}_PACKAGE_ENHANCES "${package_ENHANCES}")
endmacro()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tp-erase)
set(CPACK_PACKAGE_VENDOR "tp_Erase")
set(CPACK_PACKAGE_CONTACT "tp_Erase maintainers <tp-erase@example.org>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE tp-erase)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Libraries of these packages themselves are installed nowhere yet.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
# cpack would add scripts that call ldconfig, unless it is given ones; that these do not exist leaves
# them out (it says so). Debian wants the trigger instead.
set(control ${PROJECT_BINARY_DIR}/Packaging)
file(CONFIGURE OUTPUT ${control}/triggers CONTENT "activate-noawait ldconfig\n")
file(CONFIGURE OUTPUT ${control}/shlibs
     CONTENT "libtp_Erase ${PROJECT_VERSION_MAJOR} libtp-erase1 (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_LIBTP-ERASE1_PACKAGE_CONTROL_EXTRA
    ${control}/triggers ${control}/shlibs ${control}/postinst ${control}/postrm)

# The library is loaded at run time, so no tool finds out who needs it.
set(TP_LIBRARY_PACKAGE
    "libtp-erase1 (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_COMPONENTS_ALL)
tp_package(libtp-erase1
    SECTION libs MULTI_ARCH same
    SUMMARY "video transitions for editors, plug-in library"
    DESCRIPTION "Transitions between two video frames, planar and packed, that a video editor
loads at run time: wipes, pushes, page turns, flying cells, light and depth.

Two small libraries come along that stand in for the imaging and the logging
library of a host.")
tp_package(libtp-erase-dev
    SECTION libdevel MULTI_ARCH same
    SUMMARY "video transitions for editors, development files"
    DESCRIPTION "Transitions between two video frames, planar and packed, that a video editor
loads at run time.

This package holds what a host is built with: headers for C and C++, a CMake
package and a pkg-config file."
    DEPENDS ${TP_LIBRARY_PACKAGE})
if(TP_BUILD_HOST)
    # The font is for the labels of contact sheets.
    tp_package(transitions
        SECTION video MULTI_ARCH foreign
        SUMMARY "joins video clips by transitions, from the command line"
        DESCRIPTION "Renders the transitions of libtp_Erase between clips and still pictures,
whatever their sizes, rates and colours, with their sound. It draws
contact sheets too, and reads and writes OpenTimelineIO's edit lists."
        DEPENDS ${TP_LIBRARY_PACKAGE}
        RECOMMENDS fonts-dejavu-core)
endif()
if(TP_BUILD_MLT)
    tp_package(mlt-tp-erase
        SECTION video MULTI_ARCH same
        SUMMARY "video transitions for MLT and Kdenlive"
        DESCRIPTION "A module that brings the transitions of libtp_Erase into the MLT multimedia
engine, for melt and for editors built on it, with descriptions that Kdenlive
lists."
        DEPENDS ${TP_LIBRARY_PACKAGE}
        ENHANCES "kdenlive, melt")
endif()
if(TP_BUILD_GSTREAMER)
    tp_package(gstreamer1.0-tp-erase
        SECTION video MULTI_ARCH same
        SUMMARY "video transitions for GStreamer"
        DESCRIPTION "An element, tp_transition, that draws the transitions of libtp_Erase between
two streams of GStreamer."
        DEPENDS ${TP_LIBRARY_PACKAGE})
endif()
if(TARGET Maps)
    tp_package(tp-erase-lumas
        SECTION video MULTI_ARCH foreign
        SUMMARY "video transitions as luma maps for video editors"
        DESCRIPTION "Those transitions of libtp_Erase that choose between two pictures pixel by
pixel, as pictures that tell when each pixel changes: where the Wipe of
Kdenlive looks for them, and packed for editors whose wipes take a file."
        ENHANCES "kdenlive, shotcut, openshot-qt")
    set(CPACK_DEBIAN_TP-ERASE-LUMAS_PACKAGE_ARCHITECTURE all)
endif()

# What the files need that cmake has installed for a package, and the time that stands in it.
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/Packaging/AtPackaging.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/Packaging/FinishPackages.cmake)
set(CPACK_TP_SOURCE_FOLDER ${PROJECT_SOURCE_DIR})

# The source archive: what is committed.
set(CPACK_SOURCE_GENERATOR External)
set(CPACK_EXTERNAL_PACKAGE_SCRIPT ${PROJECT_SOURCE_DIR}/Packaging/ArchiveSource.cmake)
set(CPACK_SOURCE_PACKAGE_FILE_NAME tp-erase-${PROJECT_VERSION})
set(CPACK_SOURCE_INSTALLED_DIRECTORIES "")
include(CPack)
