# Install rules: headers under include/hexblocks, the library, the hexblocks
# tool with its manual page and bash completion, a CMake package
# (find_package(hexblocks CONFIG) -> hexblocks::hexblocks),
# a pkg-config file, and a Debian package through CPack.
include(CMakePackageConfigHelpers)

set(HEXBLOCKS_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/hexblocks)

install(TARGETS hexblocks
    EXPORT hexblocksTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/hexblocks COMPONENT development)

if(TARGET hexblocks_tool)
    install(TARGETS hexblocks_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
    # Made by 'hexblocks --generate man|complete-bash'; a test keeps them so.
    install(FILES tools/hexblocks.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT runtime)
    install(FILES tools/hexblocks.bash-completion DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        RENAME hexblocks COMPONENT runtime)
endif()

install(EXPORT hexblocksTargets
    NAMESPACE hexblocks::
    DESTINATION ${HEXBLOCKS_CMAKE_DIR}
    COMPONENT development)

configure_package_config_file(cmake/hexblocksConfig.cmake.in
    ${PROJECT_BINARY_DIR}/hexblocksConfig.cmake
    INSTALL_DESTINATION ${HEXBLOCKS_CMAKE_DIR})
# Before 1.0 a minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/hexblocksConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/hexblocksConfig.cmake ${PROJECT_BINARY_DIR}/hexblocksConfigVersion.cmake
    DESTINATION ${HEXBLOCKS_CMAKE_DIR}
    COMPONENT development)

# pkg-config: the prefix is found relative to the .pc file, so an installed
# tree can be moved (or unpacked from the .deb) anywhere.
file(RELATIVE_PATH HEXBLOCKS_PC_TO_PREFIX
    ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" HEXBLOCKS_PC_TO_PREFIX "${HEXBLOCKS_PC_TO_PREFIX}")
configure_file(cmake/hexblocks.pc.in ${PROJECT_BINARY_DIR}/hexblocks.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/hexblocks.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT development)

install(FILES README.md CHANGELOG.md LICENSE
    DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT development
    OPTIONAL)

# Debian package for the architecture being built for.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME hexblocks)
set(CPACK_PACKAGE_VENDOR "hexblocks developers")
set(CPACK_PACKAGE_CONTACT "hexblocks developers <hexblocks@example.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "C++ library and command-line tool for firmware images\n Reads, converts, merges, checks and lays out Intel HEX, S-record, ELF and\n binary images; headers, CMake and pkg-config files included.")
if(CMAKE_CROSSCOMPILING AND CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
    set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.36), libstdc++6 (>= 12)")
else()
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
include(CPack)
