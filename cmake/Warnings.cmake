# Warnings and sanitizers for every target of the project, as two interface targets.
add_library(vqreg_warnings INTERFACE)
target_compile_options(vqreg_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
                       $<$<BOOL:${VQREGLIB_WERROR}>:-Werror>)

add_library(vqreg_sanitizers INTERFACE)
if(VQREGLIB_SANITIZE)
    target_compile_options(vqreg_sanitizers INTERFACE -fsanitize=${VQREGLIB_SANITIZE}
                           -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(vqreg_sanitizers INTERFACE -fsanitize=${VQREGLIB_SANITIZE})
endif()
