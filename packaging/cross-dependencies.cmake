# Read by cpack when it packs programs for the panel: dpkg-shlibdeps knows the libraries of this machine's own
# architecture only.
function(add_libraries component program)
  execute_process(COMMAND ${CMAKE_CURRENT_LIST_DIR}/library-packages ${CPACK_KELDRA_PROGRAMS}/${program}
    OUTPUT_VARIABLE libraries OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  list(JOIN CPACK_DEBIAN_${component}_PACKAGE_DEPENDS ", " others)
  string(JOIN ", " all ${libraries} ${others})
  set(CPACK_DEBIAN_${component}_PACKAGE_DEPENDS "${all}" PARENT_SCOPE)
endfunction()

add_libraries(UPDATER K+Updater)
add_libraries(PACKAGE-TOOL keldra-package)
