# The Debian packages: names, relations, and the files that every package carries.

set(OSPREY_PACKAGE_runtime libosprey1)
set(OSPREY_PACKAGE_dev libosprey-dev)
set(OSPREY_PACKAGE_tools osprey-tools)
set(OSPREY_PACKAGE_doc osprey-doc)

osprey_compressed(OSPREY_DEBIAN_CHANGELOG ${CMAKE_CURRENT_SOURCE_DIR}/changelog.Debian)
osprey_compressed(OSPREY_CHANGELOG ${CMAKE_SOURCE_DIR}/CHANGELOG.md changelog)
foreach(COMPONENT runtime dev tools doc)
    set(FOLDER ${CMAKE_INSTALL_DATADIR}/doc/${OSPREY_PACKAGE_${COMPONENT}})
    install(FILES ${CMAKE_CURRENT_SOURCE_DIR}/copyright ${OSPREY_DEBIAN_CHANGELOG}
        ${OSPREY_CHANGELOG} DESTINATION ${FOLDER} COMPONENT ${COMPONENT})
endforeach()
install(FILES ${CMAKE_CURRENT_SOURCE_DIR}/libosprey1.lintian-overrides
    DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME libosprey1 COMPONENT runtime)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME osprey)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGE_VENDOR Osprey)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL runtime dev tools doc)
set(CPACK_DEB_COMPONENT_INSTALL ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# As packages from outside Debian are numbered: an official one would be newer.
set(CPACK_DEBIAN_PACKAGE_RELEASE 0osprey1)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Osprey maintainers <osprey@example.org>")
set(CPACK_DEBIAN_PACKAGE_SECTION net)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL aarch64)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL x86_64)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE amd64)
endif()

# Written down, since the tool that finds them out knows the packages of its own machine only;
# scripts/package compares them with what it finds there.
set(OSPREY_DEPENDS_BASE "libc6 (>= 2.36), libgcc-s1 (>= 3.0), libstdc++6 (>= 12)")
set(OSPREY_THIS_VERSION "${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libosprey1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "${OSPREY_DEPENDS_BASE}")
# Hosts that are packaged themselves learn from the first on what to depend; the second tells the
# system to look for new libraries.
file(CONFIGURE OUTPUT shlibs @ONLY CONTENT
    "libOspreyClient @PROJECT_VERSION_MAJOR@ libosprey1 (>= @PROJECT_VERSION@)\n")
file(CONFIGURE OUTPUT triggers CONTENT "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_BINARY_DIR}/shlibs ${CMAKE_CURRENT_BINARY_DIR}/triggers)
if(OSPREY_LOG4CPLUS)
    string(APPEND CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS ", liblog4cplus-2.0.5 (>= 2.0.8)")
endif()
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
"files and live packet streams between devices (shared library)
A device's own program links this library and moves files and live packet
streams to and from peers on the local network over one small TCP protocol,
as a server, an upload client, a download client or a channel client.

This package has the shared library.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libosprey-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libosprey1 (= ${OSPREY_THIS_VERSION})")
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS "osprey-doc, liblog4cplus-dev")
set(CPACK_DEBIAN_DEV_DESCRIPTION
"files and live packet streams between devices (development)
A device's own program links this library and moves files and live packet
streams to and from peers on the local network over one small TCP protocol,
as a server, an upload client, a download client or a channel client.

This package has the headers, the static library, and the descriptions for
CMake and pkg-config.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME osprey-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
    "${OSPREY_DEPENDS_BASE}, libosprey1 (= ${OSPREY_THIS_VERSION}), libssl3 (>= 3.0.0)")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "osprey-doc")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
"files and live packet streams between devices (command line)
The osprey program serves a folder to peers on the local network, sends and
fetches files and folders, and publishes and subscribes to live packet
streams, all over one small TCP protocol.")

set(CPACK_DEBIAN_DOC_PACKAGE_NAME osprey-doc)
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOC_DESCRIPTION
"files and live packet streams between devices (documentation)
The library's guide for hosts, the protocol, how it is built and tested, and
examples.")

include(CPack)
