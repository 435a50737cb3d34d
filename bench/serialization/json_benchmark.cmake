# Peers: nlohmann/json and RapidJSON (header-only), simdjson's DOM.
find_package(nlohmann_json REQUIRED)
find_package(RapidJSON REQUIRED)
find_package(simdjson REQUIRED)
target_include_directories(${name} SYSTEM PRIVATE ${RAPIDJSON_INCLUDE_DIRS})
target_link_libraries(${name} PRIVATE nlohmann_json::nlohmann_json simdjson::simdjson)
