# Routes compiles through ccache when it is installed.
find_program(VN_CCACHE ccache)
if(VN_CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${VN_CCACHE}")
    set(CMAKE_C_COMPILER_LAUNCHER "${VN_CCACHE}")
endif()
