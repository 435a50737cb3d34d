# Checks the objects of files compiled above the baseline processor (the
# AVX2 and AVX-512 text kernels, the carry-less-multiply CRC kernels): other
# files may reach each only through its entry points, a text kernel file
# through its constant set of functions (k...Kernels), a CRC file through its
# Update/Finish functions, and none runs code before the dispatcher has
# looked at the processor. A weak symbol here means an inline function
# compiled for that instruction set which the linker may hand to baseline
# callers; a constructor means code that runs at load time on any processor.
# The one weak symbol allowed is the unwinder's personality pointer
# (DW.ref.__gxx_personality_v0), which is data.
#
#   cmake -DNM=nm -DOBJDUMP=objdump -DINSTRUMENTED=OFF -DOBJECTS=a.o;b.o -P <this file>

if(NOT OBJECTS)
  message(FATAL_ERROR "no kernel objects to check")
endif()
foreach(object ${OBJECTS})
  execute_process(COMMAND ${NM} --defined-only --extern-only -C ${object}
                  OUTPUT_VARIABLE symbols RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "${NM} failed on ${object}")
  endif()
  string(REPLACE "\n" ";" symbols "${symbols}")
  set(sets 0)
  set(entries 0)
  foreach(line ${symbols})
    if(line MATCHES " [DR] tvxcore::utility::internal::k[A-Za-z0-9]+Kernels$")
      math(EXPR sets "${sets} + 1")
    elseif(line MATCHES " T tvxcore::filesupport::internal::(Update|Finish)CRC32[A-Z0-9]+\\(")
      math(EXPR entries "${entries} + 1")
    elseif(line MATCHES " V DW\\.ref\\.__gxx_personality_v0$")
      # A pointer to the C++ unwinder's personality routine that the compiler
      # emits beside any code with cleanups (sanitizer builds add some): data,
      # never code compiled for the kernel's instruction set.
    elseif(INSTRUMENTED AND line MATCHES " V typeinfo (name )?for ")
      # Type descriptions that the sanitizers' checks of indirect calls emit
      # for the functions' types: data, never code.
    elseif(NOT (INSTRUMENTED AND line MATCHES " __(asan|odr_asan|sancov)"))
      message(FATAL_ERROR "${object} defines a symbol other files can reach: ${line}\n"
                          "Give it internal linkage (utility/internal/UnicodeKernelsLoops.h).")
    endif()
  endforeach()
  if(object MATCHES "CRC32_[a-z0-9]+\\.cpp\\.o$")
    if(sets GREATER 0 OR entries EQUAL 0)
      message(FATAL_ERROR "${object} must define CRC entry points and no kernel set")
    endif()
  elseif(NOT sets EQUAL 1 OR entries GREATER 0)
    message(FATAL_ERROR "${object} must define exactly one kernel set, not ${sets}")
  endif()
  if(NOT INSTRUMENTED)
    execute_process(COMMAND ${OBJDUMP} -h ${object} OUTPUT_VARIABLE sections
                    RESULT_VARIABLE failed)
    if(failed)
      message(FATAL_ERROR "${OBJDUMP} failed on ${object}")
    endif()
    if(sections MATCHES "\\.(init_array|ctors|preinit_array)")
      message(FATAL_ERROR "${object} runs code at load time; its kernel set must be constant data")
    endif()
  endif()
endforeach()
