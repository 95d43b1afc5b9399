# CMake package of nuslib: find_package(nus) gives the imported target nus::nus (the shared
# library and the include folder of nus.h).
include("${CMAKE_CURRENT_LIST_DIR}/nusTargets.cmake")
