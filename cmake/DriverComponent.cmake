# The driver is built from one object library per subsystem. The same objects
# make the shared library a host loads and a static library the tests link,
# so tests reach the internal functions of exactly the code that ships.

include(CxxRuntime)

set(LOGO_DRIVER_COMPONENTS "" CACHE INTERNAL "")

function(logo_driver_component name)
  add_library(${name} OBJECT ${ARGN})
  set_target_properties(${name} PROPERTIES
    CXX_STANDARD 11
    CXX_STANDARD_REQUIRED ON
    CXX_EXTENSIONS OFF
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
  target_compile_definitions(${name} PUBLIC LOGO_BUILDING_DRIVER QT_NO_KEYWORDS)
  logo_target_warnings(${name})
  target_link_libraries(${name} PUBLIC ${LOGO_QT_CORE})
  set(LOGO_DRIVER_COMPONENTS ${LOGO_DRIVER_COMPONENTS} ${name} CACHE INTERNAL "")
endfunction()

function(logo_driver_library)
  set(objects "")
  foreach(component ${LOGO_DRIVER_COMPONENTS})
    list(APPEND objects $<TARGET_OBJECTS:${component}>)
  endforeach()

  # The file a host loads. Only the interface marked LOGO_EXPORT is visible,
  # and the version script holds to it whatever the compiler emits.
  add_library(logo_modbus_tcp SHARED ${objects})
  target_link_libraries(logo_modbus_tcp PRIVATE ${LOGO_QT_CORE})
  set(exports ${PROJECT_SOURCE_DIR}/cmake/driver-exports.map)
  target_link_options(logo_modbus_tcp PRIVATE -Wl,--exclude-libs,ALL -Wl,--version-script=${exports})
  set_property(TARGET logo_modbus_tcp APPEND PROPERTY LINK_DEPENDS ${exports})
  if(LOGO_SANITIZER STREQUAL "" AND NOT LOGO_BUILD_FUZZERS)
    # Sanitizer runtimes come with the executable, so only a plain build
    # can insist that the library resolves everything it uses.
    target_link_options(logo_modbus_tcp PRIVATE -Wl,--no-undefined)
  endif()
  set_target_properties(logo_modbus_tcp PROPERTIES
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}
    CXX_VISIBILITY_PRESET hidden)
  logo_static_cxx_runtime(logo_modbus_tcp)

  # The same code for in-process tests and benchmarks.
  add_library(logo_driver_static STATIC ${objects})
  target_include_directories(logo_driver_static PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
  target_link_libraries(logo_driver_static PUBLIC ${LOGO_QT_CORE})
endfunction()
