# What every target of this project is compiled with, as two interface targets; nothing is set globally.

add_library(BedrockWarnings INTERFACE)
target_compile_options(BedrockWarnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wundef -Wvla
    $<$<BOOL:${BEDROCK_WERROR}>:-Werror>)

add_library(BedrockBuild INTERFACE)
target_compile_features(BedrockBuild INTERFACE cxx_std_20)
target_compile_options(BedrockBuild INTERFACE
    -fno-omit-frame-pointer            # call stacks of a crash report stay complete
    -fstack-clash-protection           # a large frame cannot jump over the guard page
    -fno-semantic-interposition        # our own calls of exported functions are inlined like any others
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fno-gnu-unique>) # otherwise dlclose could never unload the library
if(BEDROCK_SANITIZE)
    target_compile_options(BedrockBuild INTERFACE -fsanitize=${BEDROCK_SANITIZE} -fno-sanitize-recover=all -g)
    target_link_options(BedrockBuild INTERFACE -fsanitize=${BEDROCK_SANITIZE})
endif()
if(BEDROCK_FUZZ)
    target_compile_options(BedrockBuild INTERFACE -fsanitize=fuzzer-no-link)
endif()
