# The manual of the libraries: the pages of section 3, and for every other name on a page a file through which man finds
# the page by that name.
set(VELTOR_MAN3
    cfg.3
    cfg_add_s.3
    cfg_attr_type_at.3
    cfg_begin_s.3
    cfg_check_s.3
    cfg_err2string.3
    cfg_failure_at.3
    cfg_init.3
    cfg_read_s.3
    cfg_search_s.3
    cfg_set_write_mode.3
    cfg_tree_view.3
    ldtr.3
    veltor-platform.3)

# Makes the links in the build folder, one for each name in a page's section NAME, and installs them with the pages.
function(veltor_install_manual)
    set(links "${PROJECT_BINARY_DIR}/man3")
    file(REMOVE_RECURSE "${links}")
    foreach(page IN LISTS VELTOR_MAN3)
        set(source "${PROJECT_SOURCE_DIR}/man/${page}")
        set_property(
            DIRECTORY
            APPEND
            PROPERTY CMAKE_CONFIGURE_DEPENDS "${source}")
        install(FILES "${source}" DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)
        file(STRINGS "${source}" names REGEX "^\\.Nm .")
        foreach(line IN LISTS names)
            string(REGEX REPLACE "^\\.Nm ([^ ]+).*" "\\1.3" name "${line}")
            if(NOT name STREQUAL page)
                file(WRITE "${links}/${name}" ".so man3/${page}\n")
                install(FILES "${links}/${name}" DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)
            endif()
        endforeach()
    endforeach()
endfunction()
