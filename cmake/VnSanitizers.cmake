# VN_SANITIZE selects a sanitizer build: "address" (with undefined behaviour) or "thread".
set(VN_SANITIZE "" CACHE STRING "Sanitizer build: address, thread or empty")
if(VN_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer
                        -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
elseif(VN_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
elseif(NOT VN_SANITIZE STREQUAL "")
    message(FATAL_ERROR "VN_SANITIZE must be address, thread or empty, not '${VN_SANITIZE}'")
endif()

# VN_FUZZ instruments every target for coverage-guided fuzzing (clang only); the fuzz targets
# themselves link libFuzzer.
option(VN_FUZZ "Build the fuzz targets with libFuzzer" OFF)
if(VN_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        message(FATAL_ERROR "VN_FUZZ needs clang")
    endif()
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()
