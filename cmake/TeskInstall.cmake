# Installing Tesk on a Linux desktop (cmake --install, GNUInstallDirs) and packaging it as a .deb
# (cpack, or `make package`): the programs, the desktop entry, the document's file type, the
# icons, the AppStream metainfo and the man pages. Included from the top CMakeLists after src/.
include(GNUInstallDirs)

set(TESK_APPLICATION_ID org.teskapp.Tesk)
set(TESK_DATA_DIR ${PROJECT_SOURCE_DIR}/data)
set(TESK_GENERATED_DATA_DIR ${PROJECT_BINARY_DIR}/data)
# The sizes file managers, menus and docks ask the hicolor theme for.
set(TESK_ICON_SIZES 16 22 24 32 48 64 128 256 512)

install(TARGETS tesk tesk-render RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

install(FILES ${TESK_DATA_DIR}/${TESK_APPLICATION_ID}.desktop
        DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${TESK_DATA_DIR}/${TESK_APPLICATION_ID}.metainfo.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(FILES ${TESK_DATA_DIR}/mime/${TESK_APPLICATION_ID}.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/mime/packages)

# Icons: the SVGs as they are, and PNGs drawn from them at build time by Qt's SVG renderer.
add_executable(tesk_svg_to_png ${TESK_DATA_DIR}/icons/svg-to-png.cpp)
target_link_libraries(tesk_svg_to_png PRIVATE Qt6::Svg)

set(icon_outputs)
foreach(icon IN ITEMS "apps;${TESK_APPLICATION_ID}" "mimetypes;application-x-tesk-document")
    list(GET icon 0 context)
    list(GET icon 1 name)
    set(svg ${TESK_DATA_DIR}/icons/${name}.svg)
    install(FILES ${svg} DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/${context})
    set(arguments)
    set(pngs)
    set(directories)
    foreach(size IN LISTS TESK_ICON_SIZES)
        set(directory ${TESK_GENERATED_DATA_DIR}/icons/hicolor/${size}x${size}/${context})
        list(APPEND directories ${directory})
        list(APPEND pngs ${directory}/${name}.png)
        list(APPEND arguments ${size} ${directory}/${name}.png)
        install(FILES ${directory}/${name}.png
                DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/${context})
    endforeach()
    add_custom_command(OUTPUT ${pngs}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${directories}
        COMMAND tesk_svg_to_png ${svg} ${arguments}
        DEPENDS tesk_svg_to_png ${svg}
        COMMENT "Drawing ${name} at ${TESK_ICON_SIZES} pixels"
        VERBATIM)
    list(APPEND icon_outputs ${pngs})
endforeach()

# Man pages, with the version filled in and compressed the way Debian wants them (gzip -9n:
# no name or time stamp, so the package builds the same twice).
find_program(TESK_GZIP gzip REQUIRED)
set(man_outputs)
foreach(page IN ITEMS tesk tesk-render)
    configure_file(${TESK_DATA_DIR}/man/${page}.1.in ${TESK_GENERATED_DATA_DIR}/man/${page}.1 @ONLY)
    set(compressed ${TESK_GENERATED_DATA_DIR}/man/${page}.1.gz)
    add_custom_command(OUTPUT ${compressed}
        COMMAND ${TESK_GZIP} -9nkf ${TESK_GENERATED_DATA_DIR}/man/${page}.1
        DEPENDS ${TESK_GENERATED_DATA_DIR}/man/${page}.1
        VERBATIM)
    list(APPEND man_outputs ${compressed})
endforeach()
install(FILES ${man_outputs} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

# Debian's place for a package's licence and history, named after the package, not the project.
set(debian_changelog ${TESK_GENERATED_DATA_DIR}/debian/changelog.gz)
add_custom_command(OUTPUT ${debian_changelog}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${TESK_GENERATED_DATA_DIR}/debian
    COMMAND ${CMAKE_COMMAND} -E copy ${TESK_DATA_DIR}/debian/changelog
            ${TESK_GENERATED_DATA_DIR}/debian/changelog
    COMMAND ${TESK_GZIP} -9nkf ${TESK_GENERATED_DATA_DIR}/debian/changelog
    DEPENDS ${TESK_DATA_DIR}/debian/changelog
    VERBATIM)
install(FILES ${TESK_DATA_DIR}/debian/copyright ${debian_changelog}
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/tesk)

add_custom_target(tesk_desktop_data ALL DEPENDS ${icon_outputs} ${man_outputs} ${debian_changelog})
# Building the programs alone must still leave everything `cmake --install` copies.
add_dependencies(tesk tesk_desktop_data)

# The Debian package. Its dependencies on shared libraries come from dpkg-shlibdeps; the X11
# platform plugin comes with libqt6gui6 among them, and Wayland's is recommended. dpkg triggers
# refresh the menus, the MIME database and the icon caches, so the package needs no maintainer
# scripts.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tesk)
set(CPACK_PACKAGE_VENDOR "The Tesk developers")
set(CPACK_PACKAGE_CONTACT "The Tesk developers <dev@teskapp.org>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "music-practice player: play songs slower, faster or in another key")
# The long description, wrapped for an 80-column terminal as Debian asks.
string(JOIN "\n" CPACK_PACKAGE_DESCRIPTION
    "Tesk opens a song, shows its waveform, and plays it slower or faster without"
    "changing its pitch, or in another key without changing its speed, to hear and"
    "learn the notes. A part of the song can be looped, and markers for choruses,"
    "verses and bridges dropped and jumped to. A ten-band equalizer, a vocal"
    "reduction and a pan mix shape the sound over a live spectrum, and the result,"
    "or its loop, exports to AIFF or M4A. Each song's practice settings save as a"
    "document and reopen."
    ""
    "tesk-render does the same from a shell: it plays or exports a song, or a"
    "practice document's song with its settings, and writes practice documents.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE https://teskapp.org/)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS qt6-wayland)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/package)
include(CPack)
