# An installation is a prefix; the build tree has the same shape, so that the program runs uninstalled.
set(QUORIN_BIN bin)
set(QUORIN_LIBEXEC libexec/quorin)
set(QUORIN_ANCHORS share/quorin/anchors)

# Puts an executable at its place in the prefix, in the build tree and on installation.
function(quorin_place target directory)
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/${directory})
  install(TARGETS ${target} RUNTIME DESTINATION ${directory})
endfunction()
