# Programs of 32 bits for a 64-bit machine's kernel (Debian: g++-12-multilib). The package that brings
# the headers of the kernel to where the compiler looks for them conflicts with all cross compilers.
foreach(language C CXX)
    set(CMAKE_${language}_FLAGS_INIT "-m32 -idirafter /usr/include/x86_64-linux-gnu")
endforeach()
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
