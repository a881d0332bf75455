# The MQTT bridge under load (bench/mqtt_bench.cpp): messages a second at
# the broker, the bridge's CPU, and change-to-message latency.
#   build/bench/mqtt_bench build/logohost build/liblogo_modbus_tcp.so [SECONDS]
if(TARGET logohost_mqtt)
  find_program(MOSQUITTO mosquitto PATHS /usr/sbin REQUIRED)
  find_package(nlohmann_json 3 REQUIRED)
  add_executable(mqtt_bench ${CMAKE_CURRENT_LIST_DIR}/mqtt_bench.cpp)
  target_compile_definitions(mqtt_bench PRIVATE MOSQUITTO_PATH="${MOSQUITTO}")
  target_include_directories(mqtt_bench PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(mqtt_bench PRIVATE logo_sim logohost_mqtt nlohmann_json::nlohmann_json Threads::Threads)
  logo_target_warnings(mqtt_bench)
  add_dependencies(mqtt_bench logohost logo_modbus_tcp)
endif()
