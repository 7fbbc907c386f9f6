# Makes the project's targets. Each folder is an OBJECT library, compiled once; libvidorra.so and the static library for
# tests of private parts both consist of those objects.

# The flags of all our targets.
add_library(vidorra_flags INTERFACE)
target_compile_options(vidorra_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                                               -Woverloaded-virtual -Werror=deprecated-declarations)
if(VIDORRA_WERROR)
    target_compile_options(vidorra_flags INTERFACE -Werror)
endif()
if(VIDORRA_STDLIB_ASSERTIONS)
    target_compile_definitions(vidorra_flags INTERFACE _GLIBCXX_ASSERTIONS)
endif()
if(VIDORRA_SANITIZE)
    target_compile_options(vidorra_flags INTERFACE -fsanitize=${VIDORRA_SANITIZE} -fno-sanitize-recover=all
                                                   -fno-omit-frame-pointer)
    target_link_options(vidorra_flags INTERFACE -fsanitize=${VIDORRA_SANITIZE})
    if(VIDORRA_SANITIZE MATCHES undefined)
        # FFmpeg's enumerations grow with its versions: values outside them occur, and have text forms.
        target_compile_options(vidorra_flags INTERFACE -fno-sanitize=enum)
    endif()
endif()

# vidorra_objects(NAME SOURCES... [DEPENDS TARGETS...]): one folder of the library.
function(vidorra_objects name)
    cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
    add_library(${name} OBJECT ${ARG_SOURCES})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
    target_link_libraries(${name} PRIVATE vidorra_flags PkgConfig::FFMPEG fmt::fmt tl::expected ${ARG_DEPENDS})
    set_property(GLOBAL APPEND PROPERTY VIDORRA_OBJECT_LIBRARIES ${name})
endfunction()

# Joins all folders into libvidorra.so, and into a static library for tests of private parts.
function(vidorra_add_library)
    add_library(vidorra SHARED)
    add_library(vidorra_internal STATIC EXCLUDE_FROM_ALL)
    add_library(vidorra::vidorra ALIAS vidorra)
    set_target_properties(vidorra PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
    # Undefined symbols are errors when the library is linked, not in its caller's program. The program provides the
    # sanitizers' symbols.
    if(NOT VIDORRA_SANITIZE)
        target_link_options(vidorra PRIVATE -Wl,--no-undefined)
    endif()
    get_property(folders GLOBAL PROPERTY VIDORRA_OBJECT_LIBRARIES)
    foreach(target vidorra vidorra_internal)
        foreach(objects ${folders})
            target_sources(${target} PRIVATE $<TARGET_OBJECTS:${objects}>)
        endforeach()
        target_compile_features(${target} PUBLIC cxx_std_17)
        target_include_directories(${target} PUBLIC
            $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
        foreach(name ${VIDORRA_PLATFORM_OWN})
            target_include_directories(${target} PUBLIC
                $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/platform/${name}/include>)
        endforeach()
        target_include_directories(${target} PUBLIC
            $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/vidorra/platform>)
        target_link_libraries(${target}
            PUBLIC PkgConfig::FFMPEG fmt::fmt tl::expected ${VIDORRA_PLATFORM_LIBRARIES}
            PRIVATE Threads::Threads PkgConfig::FREETYPE ${VIDORRA_INTERNAL_PLATFORM_LIBRARIES} $<BUILD_INTERFACE:vidorra_flags>)
    endforeach()
    target_include_directories(vidorra_internal PUBLIC ${PROJECT_SOURCE_DIR})
endfunction()
