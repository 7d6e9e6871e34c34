# Turns rcc's first-pass source of a resource tree into a source that pulls
# the tree's data in with the assembler's .incbin: the compiler never sees the
# megabytes of data as an array literal, so the tree builds in a moment.
#
# cmake -DRCC=<rcc> -DNAME=<tree> -DQRC=<qrc> -DPASS1=<pass-1 .cpp>
#       -DDATA=<data file to write> -DOUT=<final .cpp> -P embed_rcc_data.cmake
file(READ ${PASS1} source)
string(REGEX MATCH "static const unsigned char qt_resource_data\\[([0-9]+)\\] = {[^;]*};"
       declaration "${source}")
if(NOT declaration)
  message(FATAL_ERROR "embed_rcc_data: no data placeholder in ${PASS1}")
endif()
set(size ${CMAKE_MATCH_1})

# rcc's second pass finds the marker in a file and writes the data over the
# placeholder that follows it; a file that is only the placeholder therefore
# becomes exactly the data.
math(EXPR filler "${size} - 8")
string(REPEAT "x" ${filler} padding)
file(WRITE ${DATA}.placeholder "QRC_DATA${padding}")
execute_process(
  COMMAND ${RCC} --name ${NAME} --pass 2 --temp ${DATA}.placeholder --output ${DATA} ${QRC}
  RESULT_VARIABLE result)
file(REMOVE ${DATA}.placeholder)
file(SIZE ${DATA} written)
if(NOT result EQUAL 0 OR NOT written EQUAL size)
  message(FATAL_ERROR "embed_rcc_data: rcc pass 2 failed (${result}, ${written} of ${size} bytes)")
endif()

# The symbol carries a hash of the data, so that a compiler cache never takes
# an object built from older data for this one.
file(SHA256 ${DATA} hash)
string(SUBSTRING ${hash} 0 16 hash)
set(symbol "al_rcc_${NAME}_data_${hash}")
set(replacement
"extern \"C\" const unsigned char ${symbol}[];
__asm__(\".pushsection .rodata.${symbol},\\\"a\\\",@progbits\\n\"
        \".balign 16\\n\"
        \".globl ${symbol}\\n\"
        \".hidden ${symbol}\\n\"
        \"${symbol}:\\n\"
        \".incbin \\\"${DATA}\\\"\\n\"
        \".popsection\\n\");
#define qt_resource_data ${symbol}")
string(REPLACE "${declaration}" "${replacement}" source "${source}")
file(WRITE ${OUT}.tmp "${source}")
file(COPY_FILE ${OUT}.tmp ${OUT} ONLY_IF_DIFFERENT)
file(REMOVE ${OUT}.tmp)
