# Each test case of a GoogleTest program as a ctest entry of its own, named
# PREFIX.Suite.Case. The cases are listed when ctest runs, not after the
# build: a cross build's programs run only under the emulator (Wine), and
# its first run may boot a Wine prefix, hence the long listing time-out.
# Extra arguments are properties for every case.
include(GoogleTest)
function(kavogps_discover_tests target prefix)
  gtest_discover_tests(${target} TEST_PREFIX ${prefix}. DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 300
    PROPERTIES TIMEOUT 300 ${ARGN})
endfunction()
