# What `cmake --install` lays out, and the Debian package CPack builds from it.
include(GNUInstallDirs)

install(FILES ${PROJECT_SOURCE_DIR}/data/desktop/vocle.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)

# Icons: the scalable SVG, plus PNG sizes for panels and menus that do not render SVG.
set(vocle_app_icon ${PROJECT_SOURCE_DIR}/data/icons/vocle.svg)
if(EXISTS ${vocle_app_icon})
    install(FILES ${vocle_app_icon} DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
    file(GLOB vocle_png_icons ${PROJECT_SOURCE_DIR}/data/icons/png/*/vocle.png)
    foreach(png IN LISTS vocle_png_icons)
        get_filename_component(size_dir ${png} DIRECTORY)
        get_filename_component(size ${size_dir} NAME)
        install(FILES ${png} DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${size}/apps)
    endforeach()
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/data/icons/ DESTINATION ${CMAKE_INSTALL_DATADIR}/vocle/icons
            FILES_MATCHING PATTERN "*.svg")
endif()

# What the server serves besides its API: the update feed and the documentation page.
if(EXISTS ${PROJECT_SOURCE_DIR}/data/web)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/data/web/ DESTINATION ${CMAKE_INSTALL_DATADIR}/vocle-server/web)
endif()

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
