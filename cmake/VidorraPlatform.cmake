# The closed interfaces, each a target NAME::NAME. A device maker replaces ours with another package by
#   -DVIDORRA_<NAME>_PACKAGE=<CMake package that defines NAME::NAME>
# Ours is compiled into libvidorra.so; a package's is linked to it. See docs/PLATFORM.md.
# Most headers are public, in platform/NAME/include. Only our sources see the internal ones, in platform/NAME/internal.
set(VIDORRA_PLATFORM_LIBRARIES "")
set(VIDORRA_PLATFORM_PACKAGES "")
set(VIDORRA_PLATFORM_OWN "")
set(VIDORRA_INTERNAL_PLATFORM_LIBRARIES "")
set(VIDORRA_INTERNAL_PLATFORM_OWN "")

macro(vidorra_platform name)
    if("${ARGN}" STREQUAL "INTERNAL")
        set(list_prefix VIDORRA_INTERNAL_PLATFORM)
        set(header_folder internal)
    else()
        set(list_prefix VIDORRA_PLATFORM)
        set(header_folder include)
    endif()
    string(TOUPPER ${name} upper)
    set(VIDORRA_${upper}_PACKAGE "" CACHE STRING
        "CMake package whose target ${name}::${name} replaces platform/${name}; empty for ours")
    if(VIDORRA_${upper}_PACKAGE)
        find_package(${VIDORRA_${upper}_PACKAGE} REQUIRED)
        if(NOT TARGET ${name}::${name})
            message(FATAL_ERROR "The package ${VIDORRA_${upper}_PACKAGE} does not define ${name}::${name}")
        endif()
        list(APPEND ${list_prefix}_LIBRARIES ${name}::${name})
        list(APPEND VIDORRA_PLATFORM_PACKAGES ${VIDORRA_${upper}_PACKAGE})
    else()
        add_library(${name}_headers INTERFACE)
        add_library(${name}::${name} ALIAS ${name}_headers)
        target_include_directories(${name}_headers INTERFACE ${PROJECT_SOURCE_DIR}/platform/${name}/${header_folder})
        list(APPEND ${list_prefix}_OWN ${name})
    endif()
endmacro()

# Here and not in platform/, since a package's targets are visible only in and below the folder that finds it.
vidorra_platform(logger)
vidorra_platform(vdr_utils)
vidorra_platform(udmabuf)
vidorra_platform(objstream)
vidorra_platform(z5_hw_accel INTERNAL)
list(REMOVE_DUPLICATES VIDORRA_PLATFORM_PACKAGES)
