# 32-bit ARM (hard float) with Debian's cross compiler; programs run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# Turns off notes about arguments whose calling convention changed in GCC 7.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm;-L;/usr/arm-linux-gnueabihf)
