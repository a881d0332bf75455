# LOGO_SANITIZER=address builds everything with AddressSanitizer and
# UndefinedBehaviorSanitizer; LOGO_SANITIZER=thread with ThreadSanitizer.
set(LOGO_SANITIZER "" CACHE STRING "address or thread, empty for none")

if(LOGO_SANITIZER STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=address,undefined)
elseif(LOGO_SANITIZER STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=thread)
elseif(NOT LOGO_SANITIZER STREQUAL "")
  message(FATAL_ERROR "LOGO_SANITIZER must be address, thread or empty, not '${LOGO_SANITIZER}'")
endif()

# Fuzzers: clang's libFuzzer with AddressSanitizer and UndefinedBehaviorSanitizer;
# everything is compiled with coverage for the fuzzer to steer by.
if(LOGO_BUILD_FUZZERS)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "Fuzzers need clang: configure with -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=address,undefined)
endif()
