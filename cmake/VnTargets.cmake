# Helpers that give every library and test suite of the project the same shape.
include(GoogleTest)
include(VnInstall)

set(VN_TEST_TIMEOUT 300 CACHE STRING "Seconds one test may run")

# vn_family_dirs(<out> <dir>): <dir> and each folder directly under it. A family's folder groups
# files without naming them: includes give the file alone.
function(vn_family_dirs out dir)
    set(dirs "${dir}")
    file(GLOB children LIST_DIRECTORIES true "${dir}/*")
    foreach(c IN LISTS children)
        if(IS_DIRECTORY "${c}")
            list(APPEND dirs "${c}")
        endif()
    endforeach()
    set(${out} ${dirs} PARENT_SCOPE)
endfunction()

# vn_add_library(<target> DIRS <dir>... [PUBLIC_LIBS ...] [PRIVATE_LIBS ...])
# Builds lib<target>.so from <dir>/src/**.cpp, exporting <dir>/include.
function(vn_add_library target)
    cmake_parse_arguments(A "" "" "DIRS;PUBLIC_LIBS;PRIVATE_LIBS" ${ARGN})
    set(sources "")
    foreach(dir IN LISTS A_DIRS)
        file(GLOB_RECURSE dir_sources CONFIGURE_DEPENDS "${dir}/src/*.cpp")
        list(APPEND sources ${dir_sources})
    endforeach()
    add_library(${target} SHARED ${sources})
    foreach(dir IN LISTS A_DIRS)
        vn_family_dirs(public_dirs "${dir}/include")
        list(TRANSFORM public_dirs REPLACE "^(.+)$" "$<BUILD_INTERFACE:\\1>")
        vn_family_dirs(private_dirs "${dir}/src")
        target_include_directories(${target} PUBLIC ${public_dirs} PRIVATE ${private_dirs})
    endforeach()
    target_link_libraries(${target} PUBLIC ${A_PUBLIC_LIBS} PRIVATE ${A_PRIVATE_LIBS} vn_warnings)
    # The libraries are linked at start-up, never opened later: their thread-local data can live
    # in the static block, reached without a call.
    target_compile_options(${target} PRIVATE -ftls-model=initial-exec)
    vn_install_library(${target} DIRS ${A_DIRS} PUBLIC_LIBS ${A_PUBLIC_LIBS})
    set_target_properties(${target} PROPERTIES
        CXX_VISIBILITY_PRESET hidden
        LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
endfunction()

# vn_add_tests(<prefix> DIR <dir> LIBS <libs>...)
# <dir>/tests/*Stress*.cpp become <prefix>_stress (label "stress"), the rest <prefix>_tests
# (label "unit"). Each GoogleTest case is one ctest test.
function(vn_add_tests prefix)
    cmake_parse_arguments(A "" "DIR" "LIBS" ${ARGN})
    file(GLOB all_tests CONFIGURE_DEPENDS "${A_DIR}/tests/*.cpp")
    set(unit "")
    set(stress "")
    foreach(f IN LISTS all_tests)
        get_filename_component(base "${f}" NAME)
        if(base MATCHES "Stress")
            list(APPEND stress "${f}")
        else()
            list(APPEND unit "${f}")
        endif()
    endforeach()
    foreach(kind unit stress)
        if(NOT ${kind})
            continue()
        endif()
        if(kind STREQUAL "unit")
            set(exe ${prefix}_tests)
        else()
            set(exe ${prefix}_stress)
        endif()
        add_executable(${exe} ${${kind}})
        vn_family_dirs(src_dirs "${A_DIR}/src")
        target_include_directories(${exe} PRIVATE ${src_dirs} "${A_DIR}/tests")
        target_link_libraries(${exe} PRIVATE ${A_LIBS} GTest::gmock_main Threads::Threads vn_warnings)
        gtest_discover_tests(${exe}
            DISCOVERY_MODE PRE_TEST
            TEST_PREFIX "${prefix}."
            PROPERTIES LABELS ${kind} TIMEOUT ${VN_TEST_TIMEOUT})
    endforeach()
endfunction()
