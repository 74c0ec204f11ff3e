# SPDX-License-Identifier: MIT
# Read by the build of scripts/mutate. Everything is built as in the plain stage, whose compile cache
# it shares, except for what holds the switches.

function(ra_switch_mutants)
  foreach(target IN ITEMS ra_platform ra_suite ra_shared ra_capture ra_routing ra_settings
      ra_command_line ra_app loopback_shared loopback_driver_parts bounds_reads_test)
    if(TARGET ${target})
      target_compile_options(${target} PRIVATE -O0 -g0 -w -Wno-narrowing)
    endif()
  endforeach()
  # A share of the work is enough.
  foreach(target IN ITEMS ring_buffer_test ring_buffer_threads_test drift_test)
    target_compile_definitions(${target} PRIVATE RA_COVERAGE)
  endforeach()
endfunction()

cmake_language(DEFER CALL ra_switch_mutants)
