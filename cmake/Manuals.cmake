# The manual pages, compressed as Debian has them.
find_program(GZIP gzip REQUIRED)
function(install_manual page section component)
    set(source ${PROJECT_SOURCE_DIR}/docs/man/${page}.${section})
    set(compressed ${PROJECT_BINARY_DIR}/man/${page}.${section}.gz)
    add_custom_command(OUTPUT ${compressed} DEPENDS ${source}
                       COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
                       COMMAND ${GZIP} -9nc ${source} > ${compressed} VERBATIM)
    add_custom_target(manual_${page} ALL DEPENDS ${compressed})
    install(FILES ${compressed} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section}
            COMPONENT ${component})
endfunction()
install_manual(VQRegLib 3 development)
# With the command: whoever edits the file has that, and need not write programs.
install_manual(velquist.cfg 5 tools)
