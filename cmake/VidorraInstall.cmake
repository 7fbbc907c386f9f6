# Installs libvidorra.so, the public headers, the headers of our own closed interfaces, and the files with which CMake
# and pkg-config find the library and its dependencies.
include(CMakePackageConfigHelpers)

set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vidorra)
set(platform_include_dir ${CMAKE_INSTALL_INCLUDEDIR}/vidorra/platform)

install(TARGETS vidorra EXPORT vidorraTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/vidorra DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
foreach(name ${VIDORRA_PLATFORM_OWN})
    install(DIRECTORY platform/${name}/include/ DESTINATION ${platform_include_dir} FILES_MATCHING PATTERN "*.h")
endforeach()
install(EXPORT vidorraTargets NAMESPACE vidorra:: DESTINATION ${config_dir})

# FFmpeg's modules as the templates need them: with blanks between them, and for pkg-config without versions.
list(JOIN VIDORRA_FFMPEG_MODULES " " VIDORRA_FFMPEG_MODULE_TEXT)
configure_package_config_file(cmake/vidorraConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/vidorraConfig.cmake
                              INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/vidorraConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vidorraConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/vidorraConfigVersion.cmake
        DESTINATION ${config_dir})

# The prefix is relative to the file, so that an installed tree can be moved, as by `cmake --install --prefix`.
file(RELATIVE_PATH VIDORRA_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" VIDORRA_PC_TO_PREFIX ${VIDORRA_PC_TO_PREFIX})
string(REGEX REPLACE ">=[0-9.]+" "" VIDORRA_PC_FFMPEG_MODULES "${VIDORRA_FFMPEG_MODULE_TEXT}")
configure_file(cmake/vidorra.pc.in ${CMAKE_CURRENT_BINARY_DIR}/vidorra.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vidorra.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
