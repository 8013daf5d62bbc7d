include("${CMAKE_CURRENT_LIST_DIR}/ControllerClientTargets.cmake")
