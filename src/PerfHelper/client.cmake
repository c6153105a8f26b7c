# The client measurement engine: one tool run (PerfTest, with its output
# parser) and the coordinator the client tab owns per test (PerfHelper).
add_library(tidewave_client_engine STATIC
    ${CMAKE_CURRENT_LIST_DIR}/PerfTest.cpp ${CMAKE_CURRENT_LIST_DIR}/PerfTest.h
    ${CMAKE_CURRENT_LIST_DIR}/PerfTestDelegate.h
    ${CMAKE_CURRENT_LIST_DIR}/PerfHelper.cpp ${CMAKE_CURRENT_LIST_DIR}/PerfHelper.h
    ${CMAKE_CURRENT_LIST_DIR}/PerfHelperDelegate.h)
target_include_directories(tidewave_client_engine PUBLIC ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(tidewave_client_engine
    PUBLIC tidewave_runner tidewave_records tidewave_shell Qt6::Core
    PRIVATE tidewave_options)
target_link_libraries(tidewave_core INTERFACE tidewave_client_engine)
