# The shell runner and the paths/utilities every engine part uses.
add_library(tidewave_runner STATIC
    ${CMAKE_CURRENT_LIST_DIR}/ShellTask.cpp ${CMAKE_CURRENT_LIST_DIR}/ShellTask.h
    ${CMAKE_CURRENT_LIST_DIR}/TidewaveUtils.cpp ${CMAKE_CURRENT_LIST_DIR}/TidewaveUtils.h)
target_include_directories(tidewave_runner PUBLIC ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(tidewave_runner PUBLIC Qt6::Core tidewave_shell PRIVATE tidewave_options)
target_link_libraries(tidewave_core INTERFACE tidewave_runner)
