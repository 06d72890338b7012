include(CMakeFindDependencyMacro)
find_dependency(Qt5 COMPONENTS Core)
find_dependency(Threads)
include(${CMAKE_CURRENT_LIST_DIR}/glue_platform_targets.cmake)
