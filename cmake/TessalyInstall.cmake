# Installs the library, its headers, a CMake package (find_package(TessalyCore)) and a
# pkg-config file.
include(CMakePackageConfigHelpers)

set(TESSALY_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/TessalyCore)

install(TARGETS TessalyCore EXPORT TessalyCoreTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

foreach(_folder platform xnl persist com)
  if(IS_DIRECTORY ${CMAKE_SOURCE_DIR}/${_folder})
    install(DIRECTORY ${CMAKE_SOURCE_DIR}/${_folder} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tessaly
            FILES_MATCHING PATTERN "*.h")
  endif()
endforeach()
install(FILES ${TESSALY_GENERATED_DIR}/TessalyCore.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tessaly)

install(EXPORT TessalyCoreTargets NAMESPACE TessalyCore:: DESTINATION ${TESSALY_INSTALL_CMAKEDIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/TessalyCoreConfig.cmake.in
  ${CMAKE_BINARY_DIR}/TessalyCoreConfig.cmake INSTALL_DESTINATION ${TESSALY_INSTALL_CMAKEDIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/TessalyCoreConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/TessalyCoreConfig.cmake ${CMAKE_BINARY_DIR}/TessalyCoreConfigVersion.cmake
  DESTINATION ${TESSALY_INSTALL_CMAKEDIR})

# The prefix is found from the .pc file's own place, so that an install made with
# `cmake --install --prefix` elsewhere works wherever it lands.
file(RELATIVE_PATH TESSALY_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" TESSALY_PC_TO_PREFIX "${TESSALY_PC_TO_PREFIX}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/tessaly-core.pc.in ${CMAKE_BINARY_DIR}/tessaly-core.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/tessaly-core.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
