# Peer: spdlog (Debian's libspdlog-dev), whose runtime level check is what a
# user of that logger pays at a quiet call site.
find_package(spdlog REQUIRED)
target_link_libraries(${name} PRIVATE spdlog::spdlog)
