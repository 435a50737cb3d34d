target_link_libraries(${name} PRIVATE ICU::uc ICU::data)
