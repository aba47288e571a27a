# Run after a test executable is built: lists its GoogleTest suites and writes one ctest test per
# suite to OUTPUT, named after the suite with SUFFIX ("Waveform@1.25"), running the executable
# with EXTRA_ARGS on that suite alone.
#   cmake -D EXECUTABLE=... -D OUTPUT=... [-D SUFFIX=...] [-D EXTRA_ARGS=...] -P AddTestSuites.cmake
# A suite to a process, not a test: each process spends some 70 ms loading Qt, FFmpeg and their
# libraries before its first test, most of the time of a short test. Suites stay apart because
# some set up process-wide state of their own (the sound device's driver).
execute_process(COMMAND "${EXECUTABLE}" --gtest_list_tests ${EXTRA_ARGS}
    OUTPUT_VARIABLE listing ERROR_VARIABLE errors RESULT_VARIABLE result TIMEOUT 60)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${EXECUTABLE} --gtest_list_tests failed (${result}):\n${errors}")
endif()

set(script "")
string(REPLACE "\n" ";" lines "${listing}")
foreach(line IN LISTS lines)
    # Suites start at the line's start and end with a dot; their tests are indented below them.
    if(line MATCHES "^([^ #][^ ]*)\\.( .*)?$")
        set(suite "${CMAKE_MATCH_1}")
        set(arguments "")
        foreach(argument "--gtest_filter=${suite}.*" ${EXTRA_ARGS})
            string(APPEND arguments " [==[${argument}]==]")
        endforeach()
        string(APPEND script "add_test([==[${suite}${SUFFIX}]==] [==[${EXECUTABLE}]==]${arguments})\n")
    endif()
endforeach()
if(script STREQUAL "")
    message(FATAL_ERROR "${EXECUTABLE} lists no test suites:\n${listing}")
endif()
file(WRITE "${OUTPUT}" "${script}")
