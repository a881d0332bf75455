# The warnings every target of the project is compiled with. They are errors
# for the project's own builds (./test.sh turns LOGO_WERROR on), and only
# warnings for someone building a release with another compiler, whose new
# diagnostics must not stop the build.
option(LOGO_WERROR "Treat compiler warnings as errors" OFF)

function(logo_target_warnings)
  foreach(target ${ARGN})
    target_compile_options(${target} PRIVATE -Wall -Wextra)
    if(LOGO_WERROR)
      target_compile_options(${target} PRIVATE -Werror)
    endif()
  endforeach()
endfunction()
