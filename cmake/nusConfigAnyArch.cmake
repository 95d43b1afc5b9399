# CMake package of nuslib, for any word size: a consumer whose compiler reports no multiarch
# folder (gcc -m32 on an x86_64 system) finds this one, which loads the package of the
# library built for the consumer's word size.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    set(_nus_multiarch i386-linux-gnu)
else()
    set(_nus_multiarch x86_64-linux-gnu)
endif()
get_filename_component(_nus_package
    "${CMAKE_CURRENT_LIST_DIR}/../../../lib/${_nus_multiarch}/cmake/nus" ABSOLUTE)
if(NOT EXISTS "${_nus_package}/nusTargets.cmake")
    set(nus_FOUND FALSE)
    set(nus_NOT_FOUND_MESSAGE "nuslib is not installed for ${_nus_multiarch} (no ${_nus_package})")
else()
    include("${_nus_package}/nusTargets.cmake")
endif()
unset(_nus_multiarch)
unset(_nus_package)
