# Run by CPack on the staged files: adds what only a package for Debian has.
set(tree ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share)
set(documents ${tree}/doc/${CPACK_PACKAGE_NAME})

# The date is that of SOURCE_DATE_EPOCH if that is set.
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${documents}/changelog
  "${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium\n\n"
  "  * Built from ${CPACK_QUORIN_ORIGIN}.\n\n"
  " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")

file(GLOB pages ${tree}/man/man?/*)
# Without names and times, so that the same sources make the same package.
execute_process(COMMAND gzip -9n ${documents}/changelog ${pages} COMMAND_ERROR_IS_FATAL ANY)
file(GLOB_RECURSE files ${tree}/doc/* ${tree}/man/*)
file(CHMOD ${files} FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
