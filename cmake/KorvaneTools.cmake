# Declares that some tests need a program or a library. Without it these tests are left out; with
# CI=true in the environment that is an error.
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
