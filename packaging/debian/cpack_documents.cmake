# Debian's documents: its own changelog, and everything compressed, without a time in it.

set(share ${CPACK_TEMPORARY_DIRECTORY}/usr/share)
file(COPY ${CPACK_KESTAN_CHANGELOG} DESTINATION ${share}/doc/kestan)
file(GLOB documents ${share}/man/*/* ${share}/doc/kestan/changelog*)
execute_process(COMMAND gzip -9n ${documents} COMMAND_ERROR_IS_FATAL ANY)
