# Warnings and sanitizers for every target of the project, as two interface targets.
add_library(vqreg_warnings INTERFACE)
target_compile_options(vqreg_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
                       $<$<BOOL:${VQREGLIB_WERROR}>:-Werror>)

# The runtime alone is for code that need not be checked itself. The thread sanitizer must see all
# code: it would take synchronisation that it does not see for none.
add_library(vqreg_sanitizer_runtime INTERFACE)
add_library(vqreg_sanitizers INTERFACE)
add_library(vqreg_test_sanitizers INTERFACE)
target_link_libraries(vqreg_sanitizers INTERFACE vqreg_sanitizer_runtime)
target_link_libraries(vqreg_test_sanitizers INTERFACE vqreg_sanitizer_runtime)
if(VQREGLIB_SANITIZE)
    target_compile_options(vqreg_sanitizers INTERFACE -fsanitize=${VQREGLIB_SANITIZE}
                           -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(vqreg_sanitizer_runtime INTERFACE -fsanitize=${VQREGLIB_SANITIZE})
    # Tests that only link the runtime cannot see that from the compiler's own macros.
    target_compile_definitions(vqreg_test_sanitizers INTERFACE VQTEST_SANITIZED)
    if(VQREGLIB_FUZZ)
        target_compile_options(vqreg_sanitizers INTERFACE -fsanitize=fuzzer-no-link
            -fsanitize-coverage-ignorelist=${PROJECT_SOURCE_DIR}/fuzz/standard_library.txt)
    endif()
    if(VQREGLIB_SANITIZE STREQUAL thread)
        target_link_libraries(vqreg_test_sanitizers INTERFACE vqreg_sanitizers)
    endif()
endif()
