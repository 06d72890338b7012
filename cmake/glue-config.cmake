include(CMakeFindDependencyMacro)
find_dependency(Qt5 COMPONENTS Core)
find_dependency(glue_platform)
include(${CMAKE_CURRENT_LIST_DIR}/glue_targets.cmake)
