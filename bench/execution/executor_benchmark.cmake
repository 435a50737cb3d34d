# Peers: boost::asio::thread_pool (header-only) and oneTBB's task_group. The
# completion queue alone (the floor of the library's design) is internal: this
# benchmark also links the static archive for it.
find_package(TBB REQUIRED)
target_link_libraries(${name} PRIVATE tvxcore_internal TBB::tbb)
