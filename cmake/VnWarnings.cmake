# Warning set shared by every target of the project.
add_library(vn_warnings INTERFACE)
target_compile_options(vn_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
    $<$<CXX_COMPILER_ID:GNU>:-Wno-interference-size>)
if(VN_WERROR)
    target_compile_options(vn_warnings INTERFACE -Werror)
endif()

# Sized deallocation is standard; clang leaves it off unless asked.
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    add_compile_options(-fsized-deallocation)
endif()
