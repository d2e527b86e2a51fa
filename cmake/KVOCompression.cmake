# What files are compressed by, for the reader of matrix files; shared, as Debian has them.

find_package(ZLIB REQUIRED)
find_path(KVO_ZSTD_INCLUDE_DIR zstd.h DOC "Folder of zstd's header" REQUIRED)
find_library(KVO_ZSTD_LIBRARY zstd DOC "zstd" REQUIRED)
find_path(KVO_ZIP_INCLUDE_DIR zip.h DOC "Folder of libzip's header" REQUIRED)
find_library(KVO_ZIP_LIBRARY zip DOC "libzip" REQUIRED)
mark_as_advanced(KVO_ZSTD_INCLUDE_DIR KVO_ZSTD_LIBRARY KVO_ZIP_INCLUDE_DIR KVO_ZIP_LIBRARY)
