# Debian packages built by cpack: libvell<SOVERSION> (the shared library and its
# message catalogs), libvell-dev (headers, CMake and pkg-config files) and vell
# (the command-line tool and its man page). Dependencies on other packages come
# from dpkg-shlibdeps; those among the three are exact versions.
set(VELL_RUNTIME_PACKAGE libvell${PROJECT_VERSION_MAJOR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vell)
set(CPACK_PACKAGE_VENDOR "vell developers")
set(CPACK_PACKAGE_CONTACT "vell developers <vell@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "finds the binaries, debug symbols and sources a profiler recorded")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL runtime dev tool)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# dpkg-shlibdeps finds libvell.so.N in the build tree while the tool's package is made.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${VELL_RUNTIME_PACKAGE})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
    "vell shared library\n Locates the binaries, debug-symbol files and source files a performance-analysis\n tool recorded, validates every candidate and explains every rejection.")
# The library's own SONAME and symbols file, so that packages built against it depend on it.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libvell-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${VELL_RUNTIME_PACKAGE} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEV_DESCRIPTION
    "vell development files\n Headers, CMake package files (find_package(vell)) and pkg-config file (vell.pc)\n of the vell library.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME vell)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${VELL_RUNTIME_PACKAGE} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOL_DESCRIPTION
    "vell command-line tool\n Resolves binaries, debug-symbol files and source files from the command line,\n manages the user's search directories and files copies into archives.")

include(CPack)
