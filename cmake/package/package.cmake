# The package for Debian, which scripts/package makes from the preset "release".
set(QUORIN_PACKAGE quorin-ostreval-updater)
set(QUORIN_PACKAGE_CONTACT "QuorinOstrevalUpdater developers <quorin-ostreval-updater@example.com>"
    CACHE STRING "Whom the package names as its maintainer")
set(QUORIN_PACKAGE_VERSION ${PROJECT_VERSION} CACHE STRING "The version of the package")
set(QUORIN_PACKAGE_ORIGIN "an unnamed commit" CACHE STRING "What the package was built from, for its changelog")
install(FILES ${CMAKE_CURRENT_LIST_DIR}/copyright DESTINATION share/doc/${QUORIN_PACKAGE})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${QUORIN_PACKAGE})
set(CPACK_PACKAGE_VERSION ${QUORIN_PACKAGE_VERSION})
set(CPACK_PACKAGE_CONTACT ${QUORIN_PACKAGE_CONTACT})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/package)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
# Independent of the umask.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_QUORIN_ORIGIN ${QUORIN_PACKAGE_ORIGIN})
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/finish_tree.cmake)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The program that unpacks disk images, in the oldest release that is accepted.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "7zip (>= 22)")
# The file systems of the power cuts that quorin-rehearse tries.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS e2fsprogs)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "btrfs-progs, xfsprogs")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "updater of Quorin Ostreval, and rehearsals of its releases
Finishes the self-update of a macOS application: verifies the downloaded disk
image and the signature of the application in it, replaces the installed
application in one step, and restores the previous one if the new one does not
start.
.
On Linux, release engineers run the same update on a real disk image before a
release is published.  Disk images, signatures and processes are real there
too.")
include(CPack)
