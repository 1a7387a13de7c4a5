# Routes compiles through ccache when it is installed. Paths are hashed relative to the source
# folder and the build folder is left out of the hash, so that another clone of the same code
# (a CI run, a worktree) reuses the compiles; source positions and debug information are
# already made relative by -ffile-prefix-map.
find_program(VN_CCACHE ccache)
if(VN_CCACHE)
    set(VN_CCACHE_LAUNCHER "${CMAKE_COMMAND}" -E env "CCACHE_BASEDIR=${CMAKE_SOURCE_DIR}"
                           "CCACHE_NOHASHDIR=1" "${VN_CCACHE}")
    set(CMAKE_CXX_COMPILER_LAUNCHER ${VN_CCACHE_LAUNCHER})
    set(CMAKE_C_COMPILER_LAUNCHER ${VN_CCACHE_LAUNCHER})
endif()
