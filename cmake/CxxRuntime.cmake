# A panel's runtime loads the driver beside the C++ library of the compiler
# the runtime was built with, on Qt 4.8 panels one of the GCC 4 era, which
# lacks the symbol versions a newer compiler's code asks for. So the driver
# carries the parts of libstdc++ it uses inside itself, hidden like every
# other library's symbols (--exclude-libs,ALL), and asks of the system only
# glibc and libgcc_s. No standard library type crosses the driver's
# interface, so the two copies of libstdc++ in one process never meet.
# scripts/check-symbol-floor.sh checks the versions that result.
option(LOGO_STATIC_CXX_RUNTIME "Link libstdc++ into the driver library, hidden, so that it loads beside an older C++ runtime" ON)

function(logo_static_cxx_runtime target)
  # Sanitizer runtimes replace operator new and friends in the executable;
  # they must see the driver's allocations, so those builds keep it shared.
  if(NOT LOGO_STATIC_CXX_RUNTIME OR NOT LOGO_SANITIZER STREQUAL "" OR LOGO_BUILD_FUZZERS)
    return()
  endif()
  # libgcc_s stays shared: a process must unwind with one unwinder, and its
  # interface (GCC_3.0 to GCC_3.5) is older than any panel. The archive's
  # objects bring code the driver never calls (std::random_device beside the
  # exception strings); dropping its sections drops its calls into glibc
  # 2.25 and 2.36 too.
  target_link_options(${target} PRIVATE -static-libstdc++ -Wl,--gc-sections)
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/runtime/static_runtime.cpp)
  logo_target_warnings(${target})
endfunction()
