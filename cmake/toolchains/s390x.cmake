# 64 bits, big-endian, and a char without a sign: IBM Z Linux, emulated.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(CMAKE_C_COMPILER s390x-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER s390x-linux-gnu-g++)
# No death tests: to start itself again, and to limit its own memory, is not for an emulated program.
set(CMAKE_CROSSCOMPILING_EMULATOR env "GTEST_FILTER=-*DeathTest.*" qemu-s390x-static -L /usr/s390x-linux-gnu)
set(GTest_DIR ${CMAKE_CURRENT_LIST_DIR}/googletest)
