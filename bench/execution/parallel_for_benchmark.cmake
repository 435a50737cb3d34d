# Peer: oneTBB's parallel_for (Debian libtbb-dev).
find_package(TBB REQUIRED)
target_link_libraries(${name} PRIVATE TBB::tbb)
