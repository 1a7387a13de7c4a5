# Warning set shared by every target of the project.
add_library(vn_warnings INTERFACE)
target_compile_options(vn_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
    $<$<CXX_COMPILER_ID:GNU>:-Wno-interference-size>)
if(VN_WERROR)
    target_compile_options(vn_warnings INTERFACE -Werror)
endif()
