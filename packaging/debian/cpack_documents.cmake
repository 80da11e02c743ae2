# Adds Debian's changelog, and compresses the documents without a time stamp. Adds the
# administrator's directory of tables, which dpkg removes only while it is empty.

set(share ${CPACK_TEMPORARY_DIRECTORY}/usr/share)
file(COPY ${CPACK_KESTAN_CHANGELOG} DESTINATION ${share}/doc/kestan)
file(GLOB documents ${share}/man/*/* ${share}/doc/kestan/changelog*)
execute_process(COMMAND gzip -9n ${documents} COMMAND_ERROR_IS_FATAL ANY)
file(MAKE_DIRECTORY ${CPACK_TEMPORARY_DIRECTORY}/etc/kestan)
