# Read by cpack when the files are staged: packages hold their manuals compressed.
file(GLOB_RECURSE manuals ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/usr/share/man/*.[0-9])
foreach(manual IN LISTS manuals)
  execute_process(COMMAND gzip -9nf ${manual} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
