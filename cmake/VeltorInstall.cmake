# What `cmake --install` puts in place: libraries, headers, the CMake package and the pkg-config files, the manual, the
# examples; and the tool with its completions and its schema, where it is built. tests/install has the list of all files.
include(CMakePackageConfigHelpers)

install(
    TARGETS veltorstl veltorplatform ldtr
    EXPORT veltorTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
foreach(header cfg.h cfg_admin.h ldtr.h platform.h)
    install(FILES "${PROJECT_SOURCE_DIR}/include/veltor/${header}" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/veltor)
endforeach()
install(FILES "${PROJECT_SOURCE_DIR}/man/veltor-file.5" DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
install(
    EXPORT veltorTargets
    NAMESPACE veltor::
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/veltor)
configure_package_config_file(
    "${PROJECT_SOURCE_DIR}/cmake/veltorConfig.cmake.in" "${PROJECT_BINARY_DIR}/veltorConfig.cmake"
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/veltor)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/veltorConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/veltorConfig.cmake" "${PROJECT_BINARY_DIR}/veltorConfigVersion.cmake"
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/veltor)
foreach(example
        ansible/desired_state.ldif
        ansible/desired_state.yml
        change.c
        report.cpp
        search.c
        server.cpp
        zorslapd.conf)
    get_filename_component(folder "examples/${example}" DIRECTORY)
    install(FILES "${PROJECT_SOURCE_DIR}/examples/${example}" DESTINATION ${CMAKE_INSTALL_DOCDIR}/${folder})
endforeach()

# In a tree that can be moved the files say where it is relative to themselves.
if(VELTOR_RELOCATABLE)
    file(RELATIVE_PATH up "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
    set(VELTOR_PC_PREFIX "\${pcfiledir}/${up}")
    string(REGEX REPLACE "/$" "" VELTOR_PC_PREFIX "${VELTOR_PC_PREFIX}")
else()
    set(VELTOR_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
endif()
foreach(folder LIBDIR INCLUDEDIR)
    if(IS_ABSOLUTE "${CMAKE_INSTALL_${folder}}")
        set(VELTOR_PC_${folder} "${CMAKE_INSTALL_${folder}}")
    else()
        set(VELTOR_PC_${folder} "\${prefix}/${CMAKE_INSTALL_${folder}}")
    endif()
endforeach()
foreach(module veltorstl veltorplatform ldtr)
    configure_file("${PROJECT_SOURCE_DIR}/cmake/${module}.pc.in" "${PROJECT_BINARY_DIR}/${module}.pc" @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/${module}.pc" DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

veltor_install_manual()
if(TARGET veltor_settings_manual)
    install(FILES "${PROJECT_BINARY_DIR}/man/veltor-settings.5" DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
endif()

if(VELTOR_BUILD_TOOL)
    install(TARGETS veltor RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(FILES "${PROJECT_SOURCE_DIR}/share/veltor/output.schema.json" DESTINATION ${CMAKE_INSTALL_DATADIR}/veltor)
    install(FILES "${PROJECT_SOURCE_DIR}/share/veltor/completion/veltor.bash" RENAME veltor
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    install(FILES "${PROJECT_SOURCE_DIR}/share/veltor/completion/_veltor"
            DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
    install(FILES "${PROJECT_SOURCE_DIR}/man/veltor.1" DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()
