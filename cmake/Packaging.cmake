# Debian packages: the library, what programs are built with, the command, its screen, and the Python module.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vqreglib)
set(CPACK_PACKAGE_VENDOR "VQRegLib")
set(VQREGLIB_MAINTAINER "VQRegLib maintainers <vqreglib@home.arpa>" CACHE STRING
    "Who answers for the Debian packages: Name <address>")
set(CPACK_PACKAGE_CONTACT "${VQREGLIB_MAINTAINER}")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_COMPONENTS_ALL library development)
if(TARGET vqreg)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
if(TARGET vqreg-browse)
    list(APPEND CPACK_COMPONENTS_ALL browse)
endif()
if(VQREGLIB_PYTHON_MODULES)
    list(APPEND CPACK_COMPONENTS_ALL python)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS OFF)
# Where dpkg-shlibdeps finds the library that the command needs.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)

set(library_package libvqreglib${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/packaging/triggers
    ${PROJECT_SOURCE_DIR}/cmake/packaging/postinst)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION
    "One configuration store for the processes of a machine, shared library
Programs open keys by path and set, query, enumerate and delete typed values
in one text file. Every process sees every change at its next call.

This package contains the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvqreglib-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "${library_package} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "One configuration store for the processes of a machine, development files
Programs open keys by path and set, query, enumerate and delete typed values
in one text file. Every process sees every change at its next call.

This package contains the headers, the CMake package, the pkg-config file, the
manual page of the library and its documents.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vqreg)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION admin)
# dpkg-shlibdeps knows only packages that are installed already.
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
    "${library_package} (>= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "One configuration store for the processes of a machine, command
Reads, changes, checks, compares and watches the stores of programs that use
the VQRegLib library.

This package contains the command, shell completions, its manual page and that
of the configuration file.")

set(CPACK_DEBIAN_BROWSE_PACKAGE_NAME vqreg-browse)
set(CPACK_DEBIAN_BROWSE_PACKAGE_SECTION admin)
# The command starts it, and both read a store in the same way.
set(CPACK_DEBIAN_BROWSE_PACKAGE_DEPENDS "vqreg (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}), \
${library_package} (>= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(CPACK_COMPONENT_BROWSE_DESCRIPTION
    "One configuration store for the processes of a machine, its screen
Shows the stores of programs that use the VQRegLib library on a terminal,
keys beside values, and changes them there.

This package contains the program that the command starts for vqreg browse.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-vqreg)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "python3 (>= 3.10), ${library_package} (>= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS ansible-core)
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/packaging/python/postinst
    ${PROJECT_SOURCE_DIR}/cmake/packaging/python/prerm)
set(CPACK_COMPONENT_PYTHON_DESCRIPTION
    "One configuration store for the processes of a machine, Python module
Programs open keys by path and set, query, enumerate and delete typed values
in one text file. Every process sees every change at its next call.

This package contains the Python module, and a module for Ansible.")

# The date of the sources in seconds: that of the commit, or of the newest file in this directory
# where there is no history, which archives of a commit keep.
function(find_source_date seconds)
    set(date)
    if(EXISTS ${PROJECT_SOURCE_DIR}/.git)
        execute_process(COMMAND git -C ${PROJECT_SOURCE_DIR} log -1 --format=%ct
                        OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    endif()
    if(NOT date)
        file(GLOB files LIST_DIRECTORIES false ${PROJECT_SOURCE_DIR}/*)
        foreach(file IN LISTS files)
            file(TIMESTAMP ${file} changed "%s" UTC)
            if(NOT date OR changed GREATER date)
                set(date ${changed})
            endif()
        endforeach()
    endif()
    set(${seconds} ${date} PARENT_SCOPE)
endfunction()

# The same sources give the same changelog, whenever it is made. CMake's way to write another date than
# today's is a variable of the environment, which whoever builds may have set, too.
set(source_date $ENV{SOURCE_DATE_EPOCH})
if(NOT source_date)
    find_source_date(source_date)
endif()
set(given_date $ENV{SOURCE_DATE_EPOCH})
set(ENV{SOURCE_DATE_EPOCH} ${source_date})
string(TIMESTAMP changelog_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(ENV{SOURCE_DATE_EPOCH} ${given_date})

# Every package has its copyright and its changelog.
set(doc ${PROJECT_BINARY_DIR}/packaging)
file(MAKE_DIRECTORY ${doc})
file(WRITE ${doc}/source-date "${source_date}\n")  # for scripts/package
foreach(component library development tools browse python)
    string(TOUPPER ${component} upper)
    set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
    configure_file(${PROJECT_SOURCE_DIR}/cmake/packaging/changelog.in ${doc}/${package}/changelog.Debian)
    execute_process(COMMAND ${GZIP} -9nf ${doc}/${package}/changelog.Debian)
    install(FILES ${doc}/${package}/changelog.Debian.gz ${PROJECT_SOURCE_DIR}/cmake/packaging/copyright
            DESTINATION share/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

include(CPack)
