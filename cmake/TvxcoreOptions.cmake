# Compiler settings shared by every target of the project.

if(TVXCORE_SANITIZE)
  string(REPLACE ";" "," _tvx_san "${TVXCORE_SANITIZE}")
  add_compile_options(-fsanitize=${_tvx_san} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${_tvx_san})
  if(_tvx_san MATCHES "undefined|address")
    add_compile_options(-fno-sanitize-recover=all)
  endif()
endif()

if(TVXCORE_THREAD_SAFETY_ANALYSIS AND NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  message(FATAL_ERROR "TVXCORE_THREAD_SAFETY_ANALYSIS needs clang")
endif()

# Warnings on the project's own code; errors with TVXCORE_WERROR.
function(tvxcore_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra $<$<BOOL:${TVXCORE_WERROR}>:-Werror>
                         $<$<BOOL:${TVXCORE_THREAD_SAFETY_ANALYSIS}>:-Wthread-safety>)
endfunction()
