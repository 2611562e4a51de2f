# Flags that every target of the project is built with.
add_library(korvane_options INTERFACE)
target_compile_options(korvane_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
target_compile_definitions(korvane_options INTERFACE
  _FILE_OFFSET_BITS=64
  SVCMGR_APP_ID="${SVCMGR_APP_ID}"
  SVCMGR_VENDOR_PREFIX="${SVCMGR_VENDOR_PREFIX}")
if(KORVANE_WERROR)
  target_compile_options(korvane_options INTERFACE -Werror)
endif()
if(KORVANE_SANITIZE)
  target_compile_options(korvane_options INTERFACE
    -fsanitize=${KORVANE_SANITIZE} -fno-omit-frame-pointer)
  target_link_options(korvane_options INTERFACE -fsanitize=${KORVANE_SANITIZE})
  if(KORVANE_SANITIZE MATCHES "undefined")
    target_compile_options(korvane_options INTERFACE -fno-sanitize-recover=undefined)
    # No vtable check in programs that run short of descriptors: the check opens a pipe and reports
    # an error when none is left.
    foreach(target svcmgr-emulator korvane_host)
      target_compile_options(korvane_options INTERFACE
        $<$<STREQUAL:$<TARGET_PROPERTY:NAME>,${target}>:-fno-sanitize=vptr>)
    endforeach()
  endif()
endif()
