# 32 bits, little-endian: i686 Linux. The programs run on an x86-64 kernel by themselves, with the libraries of the compiler.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER i686-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER i686-linux-gnu-g++)
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-Wl,--dynamic-linker=/usr/i686-linux-gnu/lib/ld-linux.so.2 -Wl,-rpath=/usr/i686-linux-gnu/lib")
set(GTest_DIR ${CMAKE_CURRENT_LIST_DIR}/googletest)
