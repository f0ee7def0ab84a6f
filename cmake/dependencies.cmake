# Boost and TinyXML come from the distribution's packages of the target architecture, unpacked by
# script/bootstrap below build/deps, not installed: a 32-bit and a 64-bit build live side by side
# and the machine's own set of packages is never asked.

if(NOT NOTIFYPI_ARCH)
  set(NOTIFYPI_ARCH amd64)
  set(NOTIFYPI_TRIPLE x86_64-linux-gnu)
endif()
set(NOTIFYPI_DEPS ${PROJECT_SOURCE_DIR}/build/deps/${NOTIFYPI_ARCH}/usr)
set(NOTIFYPI_LIBDIR ${NOTIFYPI_DEPS}/lib/${NOTIFYPI_TRIPLE})

if(NOT EXISTS ${NOTIFYPI_DEPS}/include/tinyxml.h)
  message(FATAL_ERROR "${NOTIFYPI_DEPS} is not there: run script/bootstrap first")
endif()

find_package(Threads REQUIRED)

function(notifypi_unpacked_library target file)
  add_library(${target} STATIC IMPORTED GLOBAL)
  set_target_properties(${target} PROPERTIES
    IMPORTED_LOCATION ${NOTIFYPI_LIBDIR}/${file}
    INTERFACE_INCLUDE_DIRECTORIES ${NOTIFYPI_DEPS}/include
    INTERFACE_SYSTEM_INCLUDE_DIRECTORIES ${NOTIFYPI_DEPS}/include)
endfunction()

notifypi_unpacked_library(deps::tinyxml libtinyxml.a)
notifypi_unpacked_library(deps::boost_atomic libboost_atomic.a)
notifypi_unpacked_library(deps::boost_chrono libboost_chrono.a)
notifypi_unpacked_library(deps::boost_filesystem libboost_filesystem.a)
notifypi_unpacked_library(deps::boost_regex libboost_regex.a)
notifypi_unpacked_library(deps::boost_thread libboost_thread.a)
target_link_libraries(deps::boost_filesystem INTERFACE deps::boost_atomic)
target_link_libraries(deps::boost_thread INTERFACE deps::boost_chrono Threads::Threads)

# Asio and Interprocess are headers only.
add_library(deps::boost_headers INTERFACE IMPORTED GLOBAL)
set_target_properties(deps::boost_headers PROPERTIES
  INTERFACE_INCLUDE_DIRECTORIES ${NOTIFYPI_DEPS}/include
  INTERFACE_SYSTEM_INCLUDE_DIRECTORIES ${NOTIFYPI_DEPS}/include)
target_link_libraries(deps::boost_headers INTERFACE Threads::Threads)
if(NOTIFYPI_SANITIZE STREQUAL "thread")
  # The thread sanitizer knows no fences. Asio's own mutexes order what they order.
  target_compile_definitions(deps::boost_headers INTERFACE BOOST_ASIO_DISABLE_FENCED_BLOCK)
endif()
