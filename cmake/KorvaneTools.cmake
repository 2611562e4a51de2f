# A program or library that only some tests need. Without it they are left out, which is an error where
# the environment says CI=true.
function(korvane_test_needs found what)
  if(${found} OR NOT BUILD_TESTING)
    return()
  endif()
  set(mode STATUS)
  if("$ENV{CI}" STREQUAL "true")
    set(mode FATAL_ERROR)
  endif()
  message(${mode} "${what}")
endfunction()
