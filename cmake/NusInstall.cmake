# Installation: the shared library into its multiarch folder with the SONAME links, the header,
# a pkg-config file and a CMake package per library folder; in the 64-bit tree also the tools,
# the man pages, the tools' hand-kept inputs and the compiled data tree.
#
#   cmake --install build/64 --prefix /usr/local            (DESTDIR in the environment works)
#
# The data goes to NUS_INSTALL_DATAROOT (default /usr/tessaron, where the library looks when
# TESSARONDIR is not set); NUS_DATAROOT in the environment of the install step overrides it.
if(NUS_BITS STREQUAL "32")
    set(NUS_MULTIARCH i386-linux-gnu)
else()
    set(NUS_MULTIARCH x86_64-linux-gnu)
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
# Multiarch folders under every prefix, so that both libraries can live side by side.
set(NUS_INSTALL_LIBDIR "lib/${NUS_MULTIARCH}" CACHE PATH "Library folder below the prefix")
set(NUS_INSTALL_DOCDIR "${CMAKE_INSTALL_DATADIR}/doc/nus")
set(NUS_INSTALL_DATAROOT "/usr/tessaron" CACHE PATH
    "Where the compiled data tree (nus/lc11, nus/cv9, nus/cm3) is installed")

install(TARGETS nus EXPORT nusTargets
    LIBRARY DESTINATION ${NUS_INSTALL_LIBDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/nus.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# The CMake package: find_package(nus) gives nus::nus. The version file refuses a package of
# the other word size, so a consumer never takes the library of the other target.
set(NUS_CMAKE_DIR ${NUS_INSTALL_LIBDIR}/cmake/nus)
install(EXPORT nusTargets NAMESPACE nus:: DESTINATION ${NUS_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/nusConfigVersion.cmake
    VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_SOURCE_DIR}/cmake/nusConfig.cmake
    ${PROJECT_BINARY_DIR}/nusConfigVersion.cmake DESTINATION ${NUS_CMAKE_DIR})
# The same for consumers whose compiler names no multiarch folder (gcc -m32 on x86_64, where
# CMake then searches lib/cmake and share/cmake only): a package in share/cmake that loads the
# one of the consumer's word size. Both trees install the same two files.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/any-arch/nusConfigVersion.cmake
    VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion ARCH_INDEPENDENT)
install(FILES ${PROJECT_SOURCE_DIR}/cmake/nusConfigAnyArch.cmake
    DESTINATION ${CMAKE_INSTALL_DATADIR}/cmake/nus RENAME nusConfig.cmake)
install(FILES ${PROJECT_BINARY_DIR}/any-arch/nusConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_DATADIR}/cmake/nus)

# The pkg-config file names the prefix of the install step (cmake --install --prefix), so it
# is written then rather than when the tree is configured.
install(CODE "
    set(NUS_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
    string(REGEX REPLACE \"(.)/+$\" \"\\\\1\" NUS_PC_PREFIX \"\${NUS_PC_PREFIX}\")
    set(NUS_PC_LIBDIR \"${NUS_INSTALL_LIBDIR}\")
    set(NUS_PC_INCLUDEDIR \"${CMAKE_INSTALL_INCLUDEDIR}\")
    set(NUS_PC_VERSION \"${PROJECT_VERSION}\")
    set(NUS_PC_DATAROOT \"${NUS_INSTALL_DATAROOT}\")
    if(NOT \"\$ENV{NUS_DATAROOT}\" STREQUAL \"\")
        set(NUS_PC_DATAROOT \"\$ENV{NUS_DATAROOT}\")
    endif()
    configure_file(\"${PROJECT_SOURCE_DIR}/cmake/nus.pc.in\" \"${PROJECT_BINARY_DIR}/nus.pc\" @ONLY)
    file(INSTALL DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${NUS_INSTALL_LIBDIR}/pkgconfig\"
         TYPE FILE FILES \"${PROJECT_BINARY_DIR}/nus.pc\")
")

if(NOT NUS_BITS STREQUAL "64")
    return()
endif()

# The tools. nus reaches the shared library through its RUNPATH; the two compilers are linked
# statically with the library and read their registry and charmap names from share/nus.
set_target_properties(nus-cli PROPERTIES INSTALL_RPATH "$ORIGIN/../${NUS_INSTALL_LIBDIR}")
install(TARGETS nus-cli nus-localedef nus-cvdef nus-cmdef RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
file(RELATIVE_PATH NUS_SHARE_FROM_BIN /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_DATADIR}/nus)
foreach(tool nus-localedef nus-cvdef nus-cmdef)
    target_compile_definitions(${tool} PRIVATE NUS_INSTALLED_SHARE="${NUS_SHARE_FROM_BIN}")
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/data/registry ${PROJECT_SOURCE_DIR}/data/charmap-names
    ${PROJECT_SOURCE_DIR}/data/locale-modifiers DESTINATION ${CMAKE_INSTALL_DATADIR}/nus)

install(FILES ${PROJECT_SOURCE_DIR}/man/nus.1 ${PROJECT_SOURCE_DIR}/man/nus-localedef.1
    ${PROJECT_SOURCE_DIR}/man/nus-cvdef.1 ${PROJECT_SOURCE_DIR}/man/nus-cmdef.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${PROJECT_SOURCE_DIR}/man/libnus.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/ DESTINATION ${NUS_INSTALL_DOCDIR}/examples
    FILES_MATCHING PATTERN "*.c")

# The compiled data tree, where the library looks for it by default. The build's stamp files
# stay behind.
install(CODE "
    set(NUS_DATA_TARGET \"${NUS_INSTALL_DATAROOT}\")
    if(NOT \"\$ENV{NUS_DATAROOT}\" STREQUAL \"\")
        set(NUS_DATA_TARGET \"\$ENV{NUS_DATAROOT}\")
    endif()
    if(NOT IS_DIRECTORY \"${NUS_DATA_DIR}/nus/lc11\")
        message(FATAL_ERROR \"No compiled data in ${NUS_DATA_DIR}: build the 64-bit tree first\")
    endif()
    file(INSTALL DESTINATION \"\${NUS_DATA_TARGET}\" TYPE DIRECTORY
         FILES \"${NUS_DATA_DIR}/nus\" PATTERN .compiled EXCLUDE)
")

# The companion Unicode library (64-bit tree) beside libnus, and the installed data tree's
# dllregistry rewritten to name it where it is installed (the build's names the build tree's
# copy); the build's stamps of the companion's data stay behind.
if(TARGET nusu AND NUS_BITS STREQUAL "64")
    install(TARGETS nusu LIBRARY DESTINATION ${NUS_INSTALL_LIBDIR})
    install(CODE "
        set(NUS_DATA_TARGET \"${NUS_INSTALL_DATAROOT}\")
        if(NOT \"\$ENV{NUS_DATAROOT}\" STREQUAL \"\")
            set(NUS_DATA_TARGET \"\$ENV{NUS_DATAROOT}\")
        endif()
        set(nus_cm3 \"\$ENV{DESTDIR}\${NUS_DATA_TARGET}/nus/cm3\")
        file(REMOVE \"\${nus_cm3}/.nuu-32\" \"\${nus_cm3}/.nuu-64\")
        file(WRITE \"\${nus_cm3}/dllregistry\"
             \"# The companion Unicode library (written by the installation).\\n64 \${CMAKE_INSTALL_PREFIX}/${NUS_INSTALL_LIBDIR}/libnusu.so.1\\n\")
    ")
endif()
