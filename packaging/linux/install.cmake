# Run by cmake --install, which alone knows the prefix: units with the programs' real paths, and what each shell loads from
# a place of its own. BUILD, SOURCE and SERVICE_NAME are set by packaging/linux/CMakeLists.txt.
set(BTHAL_COMMAND ${CMAKE_INSTALL_PREFIX}/bin/bthal)

function(unit name other how restart command)
  set(HOW "${how}")
  set(OTHER_UNIT ${other})
  set(RESTART ${restart})
  # Either starts once the other has ended, or it would find it still running; one order says so for both.
  set(ORDER "")
  if(name STREQUAL bthal-supervise.service)
    set(ORDER "After=${other}\n")
  endif()
  set(COMMAND "${command}")
  configure_file(${SOURCE}/bthal.service.in ${BUILD}/${name} @ONLY)
  file(INSTALL ${BUILD}/${name} DESTINATION ${CMAKE_INSTALL_PREFIX}/lib/systemd/system)
endfunction()
unit(bthal.service bthal-supervise.service "" always ${CMAKE_INSTALL_PREFIX}/libexec/bthal/${SERVICE_NAME})
unit(bthal-supervise.service bthal.service ", restarted by its own supervisor, which says why it died" on-failure
     "${BTHAL_COMMAND} supervise")
configure_file(${SOURCE}/bthal-bridge.service.in ${BUILD}/bthal-bridge.service @ONLY)
file(INSTALL ${BUILD}/bthal-bridge.service DESTINATION ${CMAKE_INSTALL_PREFIX}/lib/systemd/system)

# Debian's zsh looks for what packages bring in a folder of its own.
set(zsh_folder share/zsh/site-functions)
if(CMAKE_INSTALL_PREFIX STREQUAL /usr)
  set(zsh_folder share/zsh/vendor-completions)
endif()
file(INSTALL ${BUILD}/_bthal DESTINATION ${CMAKE_INSTALL_PREFIX}/${zsh_folder})
