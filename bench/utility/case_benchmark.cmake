# ICU's own case mapping runs beside the library's in the same binary.
target_link_libraries(${name} PRIVATE ICU::uc)
