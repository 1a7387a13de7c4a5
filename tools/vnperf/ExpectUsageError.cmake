# A probe given no radius exits non-zero with the probe's own message and its usage.
execute_process(COMMAND "${VNPERF}" ScanlinePerf operation=BLUR width=16 height=16
                RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(rc EQUAL 0)
    message(FATAL_ERROR "vnperf accepted a missing radius:\n${out}${err}")
endif()
string(FIND "${err}" "vnperf: No radius specified.\n" at)
if(at EQUAL -1)
    message(FATAL_ERROR "the usage error is not reported as expected:\n${err}")
endif()
string(FIND "${err}" "radius : 1.0-512.0 : filter radius\n" at)
if(at EQUAL -1)
    message(FATAL_ERROR "the usage is not printed:\n${err}")
endif()
