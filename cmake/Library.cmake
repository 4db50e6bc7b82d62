find_package(Threads REQUIRED)

# The objects are built once: the shared library exports a few of their symbols, and the tests that
# look inside link the same objects.
file(GLOB VQREGLIB_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/portable/*.cpp
     ${PROJECT_SOURCE_DIR}/RegLib/*/*.cpp)
add_library(vqreg_objects OBJECT ${VQREGLIB_SOURCES})
set_target_properties(vqreg_objects PROPERTIES POSITION_INDEPENDENT_CODE ON)
# What a thread has of its own is found without a call of the loader's.
target_compile_options(vqreg_objects PRIVATE -ftls-model=initial-exec)
# That the locks are held which the annotations name. Not for the tests, which do with locks what nobody
# should.
target_compile_options(vqreg_objects PRIVATE
                       $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety;-Werror=thread-safety>)
target_include_directories(vqreg_objects PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
if(VQREGLIB_COVERAGE)
    target_sources(vqreg_objects PRIVATE ${PROJECT_SOURCE_DIR}/tests/support/coverage_exit.cpp)
    target_compile_options(vqreg_objects PRIVATE --coverage -fprofile-abs-path -fprofile-update=atomic)
    target_link_options(vqreg_sanitizer_runtime INTERFACE --coverage)
endif()
target_compile_definitions(vqreg_objects PRIVATE VQREGLIB_VERSION="${PROJECT_VERSION}")
# Programs in C have the version in their header.
file(STRINGS ${PROJECT_SOURCE_DIR}/include/vqreg.h version_of_header REGEX "#define VQREG_VERSION")
if(NOT version_of_header STREQUAL "#define VQREG_VERSION \"${PROJECT_VERSION}\"")
    message(FATAL_ERROR "include/vqreg.h is not of version ${PROJECT_VERSION}: ${version_of_header}")
endif()
target_link_libraries(vqreg_objects PUBLIC Threads::Threads vqreg_sanitizer_runtime
                      PRIVATE vqreg_warnings vqreg_sanitizers)

# What the command has from them: lines as text, and looking at shared objects. It needs nothing else
# of the library, and nothing of it is exported.
set(files_of_command "/(RegLib/text/[A-Za-z]+|portable/(FileLink|FileLocks|FileNews|FileSystem|ObjectName))\\.cpp")
set(VQREGLIB_OBJECTS_OF_COMMAND
    "$<FILTER:$<TARGET_OBJECTS:vqreg_objects>,INCLUDE,${files_of_command}>")
# These are one object for each file, for the sake of that choice, and so are all in what is installed
# and measured.
if(VQREGLIB_UNITY STREQUAL ALL)
    list(FILTER VQREGLIB_SOURCES EXCLUDE REGEX "${files_of_command}$")
    compile_in_batches(vqreg_objects 8 ${VQREGLIB_SOURCES})
else()
    set_target_properties(vqreg_objects PROPERTIES UNITY_BUILD OFF)
endif()

add_library(VQRegLib SHARED)
add_library(VQRegLib::VQRegLib ALIAS VQRegLib)
target_link_libraries(VQRegLib PRIVATE vqreg_objects)
target_include_directories(VQRegLib INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_features(VQRegLib INTERFACE cxx_std_11)
set_target_properties(VQRegLib PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/exports.map)
# nodelete: threads of the library may outlive a dlclose. Bsymbolic-functions: calls within the library
# need no look-up by name when it is loaded.
# With counts it also has the end of a process, for the programs that it is linked with.
if(NOT VQREGLIB_COVERAGE)
    target_link_options(VQRegLib PRIVATE
                        -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map)
endif()
target_link_options(VQRegLib PRIVATE
    -Wl,-z,now -Wl,-z,relro -Wl,-z,nodelete -Wl,-Bsymbolic-functions)
if(NOT VQREGLIB_SANITIZE)
    target_link_options(VQRegLib PRIVATE -Wl,-z,defs)
endif()

include(CMakePackageConfigHelpers)
configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/VQRegLibConfig.cmake.in ${PROJECT_BINARY_DIR}/VQRegLibConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VQRegLib)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VQRegLibConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
configure_file(${PROJECT_SOURCE_DIR}/cmake/VQRegLib.pc.in ${PROJECT_BINARY_DIR}/VQRegLib.pc @ONLY)

install(TARGETS VQRegLib EXPORT VQRegLibTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library
        NAMELINK_COMPONENT development)
install(EXPORT VQRegLibTargets NAMESPACE VQRegLib::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VQRegLib COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        COMPONENT development FILES_MATCHING PATTERN *.h)
install(FILES ${PROJECT_BINARY_DIR}/VQRegLibConfig.cmake
              ${PROJECT_BINARY_DIR}/VQRegLibConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VQRegLib COMPONENT development)
install(FILES ${PROJECT_BINARY_DIR}/VQRegLib.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
# What whoever writes programs reads; the other documents are about the sources.
install(FILES ${PROJECT_SOURCE_DIR}/docs/user-guide.md ${PROJECT_SOURCE_DIR}/docs/sharing.md
              ${PROJECT_SOURCE_DIR}/docs/file-format.md ${PROJECT_SOURCE_DIR}/docs/guarantees.md
              ${PROJECT_SOURCE_DIR}/docs/tracing.md ${PROJECT_SOURCE_DIR}/docs/python.md
              ${PROJECT_SOURCE_DIR}/docs/systemd.md ${PROJECT_SOURCE_DIR}/docs/containers.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${CMAKE_INSTALL_DOCDIR}
        COMPONENT development FILES_MATCHING PATTERN *.cpp PATTERN *.c PATTERN *.h
        PATTERN systemd EXCLUDE)
