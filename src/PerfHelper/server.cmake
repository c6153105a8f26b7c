# The measurement server engine: runs the tool in server mode and turns its
# output into one record per incoming test.
add_library(tidewave_server_engine STATIC
    ${CMAKE_CURRENT_LIST_DIR}/PerfServer.cpp ${CMAKE_CURRENT_LIST_DIR}/PerfServer.h
    ${CMAKE_CURRENT_LIST_DIR}/PerfServerDelegate.h)
target_include_directories(tidewave_server_engine PUBLIC ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(tidewave_server_engine
    PUBLIC Qt6::Core tidewave_runner tidewave_records tidewave_shell
    PRIVATE tidewave_options)
target_link_libraries(tidewave_core INTERFACE tidewave_server_engine)
