# What `cmake --install` lays out, and the Debian package CPack builds from it.
include(GNUInstallDirs)

install(FILES ${PROJECT_SOURCE_DIR}/data/desktop/vocle.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)

# The app icon for menus and panels: the scalable SVG, and PNG sizes for those that do not draw SVG.
install(FILES ${PROJECT_SOURCE_DIR}/data/icons/vocle.svg DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
find_program(RSVG_CONVERT rsvg-convert)
if(RSVG_CONVERT)
    set(vocle_pngs)
    foreach(size 16 22 24 32 48 64 128 256)
        set(png ${PROJECT_BINARY_DIR}/icons/${size}x${size}/vocle.png)
        add_custom_command(OUTPUT ${png}
            COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/icons/${size}x${size}
            COMMAND ${RSVG_CONVERT} -w ${size} -h ${size} -o ${png} ${PROJECT_SOURCE_DIR}/data/icons/vocle.svg
            DEPENDS ${PROJECT_SOURCE_DIR}/data/icons/vocle.svg VERBATIM)
        list(APPEND vocle_pngs ${png})
        install(FILES ${png} DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}x${size}/apps)
    endforeach()
    add_custom_target(vocle_icons ALL DEPENDS ${vocle_pngs})
endif()

# What the server serves besides its API: the update feed and the documentation page.
install(FILES ${PROJECT_SOURCE_DIR}/data/appcast.xml ${PROJECT_SOURCE_DIR}/data/docs.html
        DESTINATION ${CMAKE_INSTALL_DATADIR}/vocle)

# The server's systemd user unit, pointing at the installed binary.
file(READ ${PROJECT_SOURCE_DIR}/deploy/vocle-server.service vocle_unit)
string(REPLACE "/usr/local/bin/" "${CMAKE_INSTALL_FULL_BINDIR}/" vocle_unit "${vocle_unit}")
file(WRITE ${PROJECT_BINARY_DIR}/vocle-server.service "${vocle_unit}")
install(FILES ${PROJECT_BINARY_DIR}/vocle-server.service DESTINATION lib/systemd/user)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vocle)
set(CPACK_PACKAGE_VENDOR "Vocle")
set(CPACK_PACKAGE_CONTACT "Vocle developers <dev@vocle.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Dictation for the Linux desktop, with a self-hostable transcription backend")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)
# Loaded at run time rather than linked: the speech model, the Qt platform and SVG plugins, the a11y bus.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "pocketsphinx-en-us, qt6-qpa-plugins, libqt6svg6, at-spi2-core, xdg-utils")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pulseaudio | pipewire-pulse")
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
include(CPack)
