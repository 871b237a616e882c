# Imported targets for CMake, with the flags that pkg-config gives:
#
#     find_package(libdbusgantry CONFIG REQUIRED)
#     target_link_libraries(host PRIVATE libdbusgantry::libdbusgantry)      a host in C
#     target_link_libraries(host PRIVATE libdbusgantry::libdbusgantry-cpp)  a host in C++20
#
# The second target exists where the headers of sdbusplus and sdeventplus are installed.
include(CMakeFindDependencyMacro)
find_dependency(PkgConfig)

set(_libdbusgantry_path "$ENV{PKG_CONFIG_PATH}")
set(ENV{PKG_CONFIG_PATH} "${CMAKE_CURRENT_LIST_DIR}/../../pkgconfig:${_libdbusgantry_path}")
foreach(_libdbusgantry IN ITEMS libdbusgantry libdbusgantry-cpp)
    pkg_check_modules(${_libdbusgantry} QUIET IMPORTED_TARGET ${_libdbusgantry})
    if(TARGET PkgConfig::${_libdbusgantry} AND NOT TARGET libdbusgantry::${_libdbusgantry})
        add_library(libdbusgantry::${_libdbusgantry} ALIAS PkgConfig::${_libdbusgantry})
    endif()
endforeach()
if(TARGET PkgConfig::libdbusgantry-cpp)
    set_property(TARGET PkgConfig::libdbusgantry-cpp
        APPEND PROPERTY INTERFACE_COMPILE_FEATURES cxx_std_20)
endif()
set(ENV{PKG_CONFIG_PATH} "${_libdbusgantry_path}")
