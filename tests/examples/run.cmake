# Runs an example: COMMAND (a ;-list) with the file INPUT (optional) on standard input, and
# compares its standard output with the file EXPECT and its exit status with STATUS (default
# 0). With REPEAT, the input is INPUT's text that many times over and the expected output
# EXPECT's text as many times (long inputs from one-line files).
if(NOT DEFINED STATUS)
    set(STATUS 0)
endif()
file(READ ${EXPECT} expected)
if(INPUT AND REPEAT)
    file(READ ${INPUT} text)
    string(REPEAT "${text}" ${REPEAT} text)
    string(REPEAT "${expected}" ${REPEAT} expected)
    get_filename_component(name ${INPUT} NAME)
    set(INPUT ${CMAKE_CURRENT_BINARY_DIR}/${name}.x${REPEAT})
    file(WRITE ${INPUT} "${text}")
endif()
if(INPUT)
    set(input_arg INPUT_FILE ${INPUT})
endif()
execute_process(COMMAND ${COMMAND} ${input_arg}
    OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE status)
if(NOT status EQUAL STATUS)
    message(FATAL_ERROR "exit status ${status}, expected ${STATUS}\n${err}")
endif()
if(NOT out STREQUAL expected)
    message(FATAL_ERROR "output differs from ${EXPECT}:\n--- got\n${out}--- expected\n${expected}\n${err}")
endif()
