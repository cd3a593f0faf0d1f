# Run by CPack on the staged files before it packs them: strips every ELF file
# (the frei0r plug-ins are copied as files, which CPACK_STRIP_FILES leaves
# alone) and compresses the manual pages, as Debian's packages have them.
file(GLOB_RECURSE staged LIST_DIRECTORIES FALSE "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*")
foreach(path ${staged})
  if(IS_SYMLINK ${path})
    continue()
  endif()
  if(path MATCHES "/share/man/man[1-9]/[^/]+\\.[1-9]$")
    execute_process(COMMAND gzip -9nf ${path} COMMAND_ERROR_IS_FATAL ANY)
    continue()
  endif()
  file(READ ${path} magic LIMIT 4 HEX)
  if(magic STREQUAL "7f454c46" AND NOT path MATCHES "\\.a$")
    execute_process(COMMAND strip --strip-unneeded --remove-section=.comment --remove-section=.note ${path}
                    COMMAND_ERROR_IS_FATAL ANY)
  endif()
endforeach()
