# Headers, the CMake package and the pkg-config files. The libraries install themselves.

include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/Ormek")
set(pkgconfig_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

# The installed tree may be moved, so the pkg-config files find the prefix from where they lie.
file(RELATIVE_PATH prefix_from_pkgconfig
    "${CMAKE_INSTALL_PREFIX}/${pkgconfig_dir}" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" prefix_from_pkgconfig "${prefix_from_pkgconfig}")

function(ormek_install_headers component)
    foreach(room IN LISTS ARGN)
        if(IS_DIRECTORY "${PROJECT_SOURCE_DIR}/${room}")
            install(DIRECTORY "${PROJECT_SOURCE_DIR}/${room}"
                DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/ormek" COMPONENT ${component}
                FILES_MATCHING PATTERN "*.h"
                REGEX "/(cache/(Trace|Directories)|client/(ActionState|Edits|Engine|EntryStates|Listings|QueryState))\\.h$" EXCLUDE)
        endif()
    endforeach()
endfunction()

function(ormek_install_pkgconfig name component)
    configure_file("${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in"
        "${PROJECT_BINARY_DIR}/${name}.pc" @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/${name}.pc"
        DESTINATION "${pkgconfig_dir}" COMPONENT ${component})
endfunction()

if(TARGET ormek)
    ormek_install_headers(core model service cache)
    install(EXPORT OrmekCoreTargets NAMESPACE Ormek::
        DESTINATION "${package_dir}" COMPONENT core)
    ormek_install_pkgconfig(ormek core)

    configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/OrmekConfig.cmake.in"
        "${PROJECT_BINARY_DIR}/OrmekConfig.cmake"
        INSTALL_DESTINATION "${package_dir}"
        NO_SET_AND_CHECK_MACRO)
    write_basic_package_version_file("${PROJECT_BINARY_DIR}/OrmekConfigVersion.cmake"
        COMPATIBILITY SameMinorVersion)
    install(FILES
        "${PROJECT_BINARY_DIR}/OrmekConfig.cmake"
        "${PROJECT_BINARY_DIR}/OrmekConfigVersion.cmake"
        DESTINATION "${package_dir}" COMPONENT core)
endif()

# Targets of their own export set: who embeds the core alone needs no GIO to find the package.
if(TARGET ormek_backend)
    ormek_install_headers(client backend client)
    install(EXPORT OrmekClientTargets NAMESPACE Ormek::
        DESTINATION "${package_dir}" COMPONENT client)
endif()
if(TARGET ormek_client)
    ormek_install_pkgconfig(ormek-client client)
endif()

if(TARGET ormek_app)
    install(TARGETS ormek_app RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT apps)
endif()
