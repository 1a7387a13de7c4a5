# Installation: versioned shared libraries, their headers under include/VN/<library> with each
# package and family folder kept apart, an exported CMake package (VN::<library>) and a
# pkg-config file per library.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(VN_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/VN")
set(VN_PKGCONFIG_TEMPLATE "${CMAKE_CURRENT_LIST_DIR}/vn.pc.in")

# vn_install_library(<target> DIRS <dir>... PUBLIC_LIBS <libs>...)
function(vn_install_library target)
    cmake_parse_arguments(A "" "" "DIRS;PUBLIC_LIBS" ${ARGN})
    string(REGEX REPLACE "^VN" "" name "${target}")
    list(LENGTH A_DIRS ndirs)
    set(install_dirs "")
    foreach(dir IN LISTS A_DIRS)
        set(dest "${CMAKE_INSTALL_INCLUDEDIR}/VN/${name}")
        if(ndirs GREATER 1)
            get_filename_component(package "${dir}" NAME)
            string(APPEND dest "/${package}")
        endif()
        if(NOT EXISTS "${dir}/include")
            continue()
        endif()
        install(DIRECTORY "${dir}/include/" DESTINATION "${dest}" COMPONENT devel
                FILES_MATCHING PATTERN "*.h")
        vn_family_dirs(families "${dir}/include")
        foreach(f IN LISTS families)
            file(RELATIVE_PATH rel "${dir}/include" "${f}")
            if(rel STREQUAL "")
                list(APPEND install_dirs "${dest}")
            else()
                list(APPEND install_dirs "${dest}/${rel}")
            endif()
        endforeach()
    endforeach()
    foreach(d IN LISTS install_dirs)
        target_include_directories(${target} PUBLIC "$<INSTALL_INTERFACE:${d}>")
    endforeach()
    set_target_properties(${target} PROPERTIES
        VERSION "${PROJECT_VERSION}"
        SOVERSION "${PROJECT_VERSION_MAJOR}"
        EXPORT_NAME "${name}"
        INSTALL_RPATH "$ORIGIN")
    install(TARGETS ${target} EXPORT VNTargets
            LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime
                    NAMELINK_COMPONENT devel)

    # pkg-config: the VN libraries this one needs, and the include folders.
    set(PC_NAME "${name}")
    set(PC_LIB "${target}")
    set(PC_REQUIRES "")
    set(PC_LIBS_EXTRA "")
    foreach(l IN LISTS A_PUBLIC_LIBS)
        if(l MATCHES "^VN(.+)$")
            list(APPEND PC_REQUIRES "vn-${CMAKE_MATCH_1} = ${PROJECT_VERSION}")
        elseif(l STREQUAL "Threads::Threads")
            set(PC_LIBS_EXTRA "-pthread")
        endif()
    endforeach()
    list(JOIN PC_REQUIRES ", " PC_REQUIRES)
    set(PC_CFLAGS "")
    foreach(d IN LISTS install_dirs)
        string(APPEND PC_CFLAGS " -I\${prefix}/${d}")
    endforeach()
    # Relocatable: the prefix is found from the file's own place.
    file(RELATIVE_PATH PC_PREFIX_FROM_PCDIR "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
    string(REGEX REPLACE "/$" "" PC_PREFIX_FROM_PCDIR "${PC_PREFIX_FROM_PCDIR}")
    configure_file("${VN_PKGCONFIG_TEMPLATE}" "${CMAKE_BINARY_DIR}/pkgconfig/vn-${name}.pc" @ONLY)
    install(FILES "${CMAKE_BINARY_DIR}/pkgconfig/vn-${name}.pc"
            DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT devel)
endfunction()

# The package files, once every library is declared.
function(vn_install_package)
    install(EXPORT VNTargets NAMESPACE VN:: DESTINATION "${VN_INSTALL_CMAKEDIR}"
            COMPONENT devel)
    configure_package_config_file("${CMAKE_SOURCE_DIR}/cmake/VNConfig.cmake.in"
                                  "${CMAKE_BINARY_DIR}/VNConfig.cmake"
                                  INSTALL_DESTINATION "${VN_INSTALL_CMAKEDIR}")
    write_basic_package_version_file("${CMAKE_BINARY_DIR}/VNConfigVersion.cmake"
                                     VERSION "${PROJECT_VERSION}"
                                     COMPATIBILITY SameMajorVersion)
    install(FILES "${CMAKE_BINARY_DIR}/VNConfig.cmake" "${CMAKE_BINARY_DIR}/VNConfigVersion.cmake"
            DESTINATION "${VN_INSTALL_CMAKEDIR}" COMPONENT devel)
endfunction()
