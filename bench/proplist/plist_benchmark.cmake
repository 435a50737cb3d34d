# Peers: libplist (XML property lists), pugixml (raw DOM parse), expat (SAX
# ceiling with empty handlers).
find_package(PkgConfig REQUIRED)
pkg_check_modules(PLIST_PEER REQUIRED IMPORTED_TARGET libplist-2.0)
find_package(pugixml REQUIRED)
find_package(EXPAT REQUIRED)
target_link_libraries(${name} PRIVATE PkgConfig::PLIST_PEER pugixml::pugixml EXPAT::EXPAT)
