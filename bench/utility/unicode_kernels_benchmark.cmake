# The kernels are internal: this benchmark links the static archive, of which
# it uses only the conversion loops, and ICU beside them.
target_link_libraries(${name} PRIVATE tvxcore_internal ICU::uc ICU::data)
