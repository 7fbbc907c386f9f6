# Finds everything outside the project that the library needs, once.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(fmt REQUIRED)
find_package(tl-expected REQUIRED)
# Header-only libraries.
find_package(Boost 1.67 REQUIRED)

pkg_check_modules(FREETYPE REQUIRED IMPORTED_TARGET freetype2)

# The libraries whose types appear in public headers are passed on to callers. The version is a floor that every
# supported FFmpeg version meets: 4.3 has libavcodec 58.91.
set(VIDORRA_FFMPEG_MODULES libavcodec>=58.91 libavfilter libavformat libavutil libswresample libswscale)
pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET ${VIDORRA_FFMPEG_MODULES})
