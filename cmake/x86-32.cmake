# The host is a 32-bit process, so the product is built for it by a 64-bit compiler with -m32.
set(CMAKE_C_FLAGS_INIT -m32)
set(CMAKE_CXX_FLAGS_INIT -m32)
set(NOTIFYPI_ARCH i386)
set(NOTIFYPI_TRIPLE i386-linux-gnu)
