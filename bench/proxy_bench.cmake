# The Modbus proxy of `logohost panel` against a libmodbus client talking
# straight to the simulator (bench/proxy_bench.cpp).
if(TARGET logohost_proxy)
  add_executable(proxy_bench ${CMAKE_CURRENT_LIST_DIR}/proxy_bench.cpp)
  target_compile_definitions(proxy_bench PRIVATE
    LOGOHOST_PATH="$<TARGET_FILE:logohost>"
    LOGO_DRIVER_PATH="$<TARGET_FILE:logo_modbus_tcp>")
  target_link_libraries(proxy_bench PRIVATE logo_sim PkgConfig::MODBUS Threads::Threads)
  set_target_properties(proxy_bench PROPERTIES CXX_STANDARD 17)
  logo_target_warnings(proxy_bench)
  add_dependencies(proxy_bench logohost logo_modbus_tcp)
endif()
