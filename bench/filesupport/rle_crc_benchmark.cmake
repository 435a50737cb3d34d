# Peers: zlib's crc32() and ISA-L's crc32_gzip_refl(). The kernels are
# internal: the benchmark links the static archive for them.
find_package(ZLIB REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(ISAL_PEER REQUIRED IMPORTED_TARGET libisal)
target_link_libraries(${name} PRIVATE tvxcore_internal ZLIB::ZLIB PkgConfig::ISAL_PEER)
