# The Python module and the one for Ansible, which are installed only where somebody says so: other Pythons
# than Debian's have the wheel of scripts/wheel.
set(VQREGLIB_PYTHON_MODULES "" CACHE STRING
    "Where the Python module is installed, below the prefix; nowhere when empty")
if(NOT VQREGLIB_PYTHON_MODULES)
    return()
endif()
set(doc ${CMAKE_INSTALL_DATAROOTDIR}/doc/python3-vqreg)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/python/vqreg DESTINATION ${VQREGLIB_PYTHON_MODULES}
        COMPONENT python FILES_MATCHING PATTERN *.py PATTERN py.typed PATTERN __pycache__ EXCLUDE)
# Where ansible looks for modules of the machine.
install(FILES ${PROJECT_SOURCE_DIR}/python/ansible/vqreg.py
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/ansible/plugins/modules COMPONENT python)
install(FILES ${PROJECT_SOURCE_DIR}/docs/python.md DESTINATION ${doc} COMPONENT python)

# For importlib.metadata, and for pip, which then knows that it is there.
set(metadata ${PROJECT_BINARY_DIR}/vqreg-${PROJECT_VERSION}.dist-info)
file(WRITE ${metadata}/METADATA
     "Metadata-Version: 2.1\nName: vqreg\nVersion: ${PROJECT_VERSION}\nSummary: ${PROJECT_DESCRIPTION}\n"
     "Requires-Python: >=3.10\nClassifier: Operating System :: POSIX :: Linux\nClassifier: Typing :: Typed\n")
file(WRITE ${metadata}/INSTALLER "debian\n")  # pip then leaves it alone
install(DIRECTORY ${metadata} DESTINATION ${VQREGLIB_PYTHON_MODULES} COMPONENT python)
