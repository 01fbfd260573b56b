# Installation: the library with its headers, a CMake package (find_package(Bedrock)) and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS Bedrock EXPORT BedrockExport
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_BINARY_DIR}/generated/Bedrock/Version.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Bedrock)
install(EXPORT BedrockExport NAMESPACE Bedrock:: FILE BedrockTargets.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Bedrock)

write_basic_package_version_file(${PROJECT_BINARY_DIR}/BedrockConfigVersion.cmake COMPATIBILITY SameMajorVersion)
file(WRITE ${PROJECT_BINARY_DIR}/BedrockConfig.cmake
    "include(\"\${CMAKE_CURRENT_LIST_DIR}/BedrockTargets.cmake\")\n")
install(FILES ${PROJECT_BINARY_DIR}/BedrockConfig.cmake ${PROJECT_BINARY_DIR}/BedrockConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Bedrock)

# Relative to itself, so that an installed tree may be moved.
file(RELATIVE_PATH BEDROCK_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/bedrock.pc.in ${PROJECT_BINARY_DIR}/bedrock.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/bedrock.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
