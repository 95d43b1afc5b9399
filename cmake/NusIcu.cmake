# ICU for the companion Unicode library and its tests: the system's in the 64-bit tree; in the
# 32-bit tree Debian's i386 packages unpacked by scripts/fetch-i386-icu (NUS_ICU_I386), found
# there and loaded from there through a run path that also serves ICU's own dependencies.
# Sets NUS_HAVE_ICU.
set(NUS_HAVE_ICU OFF)
if(NUS_BITS STREQUAL "64")
    find_package(ICU REQUIRED COMPONENTS uc i18n)
    set(NUS_HAVE_ICU ON)
else()
    set(NUS_ICU_I386 "${CMAKE_SOURCE_DIR}/build/i386-icu/root" CACHE PATH
        "Debian's i386 ICU unpacked by scripts/fetch-i386-icu (32-bit tree)")
    set(nus_icu_lib "${NUS_ICU_I386}/usr/lib/i386-linux-gnu")
    if(EXISTS "${nus_icu_lib}/libicuuc.so" AND EXISTS "${nus_icu_lib}/libicui18n.so")
        set(ICU_INCLUDE_DIR "${NUS_ICU_I386}/usr/include" CACHE PATH "" FORCE)
        set(ICU_UC_LIBRARY_RELEASE "${nus_icu_lib}/libicuuc.so" CACHE FILEPATH "" FORCE)
        set(ICU_I18N_LIBRARY_RELEASE "${nus_icu_lib}/libicui18n.so" CACHE FILEPATH "" FORCE)
        find_package(ICU COMPONENTS uc i18n)
        if(ICU_FOUND)
            set(NUS_HAVE_ICU ON)
            set(NUS_ICU_RPATH "-Wl,--disable-new-dtags,-rpath,${nus_icu_lib}")
        endif()
    endif()
endif()
