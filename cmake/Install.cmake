# SPDX-License-Identifier: Apache-2.0
# What `cmake --install build/release` puts where, under CMAKE_INSTALL_PREFIX (/usr/local unless told otherwise).
include(GNUInstallDirs)

foreach(program meridald meridal-disks meridalctl)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

if(APPLE)
  file(GLOB plists CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/packaging/macos/*.plist)
  install(FILES ${plists} DESTINATION /Library/LaunchDaemons)
else()
  # Not CMAKE_INSTALL_LIBDIR: systemd looks for units in lib below /usr and /usr/local whatever the architecture.
  install(FILES ${CMAKE_SOURCE_DIR}/packaging/linux/meridald.service
    ${CMAKE_SOURCE_DIR}/packaging/linux/meridal-disks.service ${CMAKE_SOURCE_DIR}/packaging/linux/meridal-disks.socket
    DESTINATION lib/systemd/system)
endif()

# An example, not the file itself: installing again must not undo what an administrator wrote.
install(FILES ${CMAKE_SOURCE_DIR}/packaging/meridald.conf DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)

foreach(section 1 5 8)
  file(GLOB pages CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/packaging/*.${section})
  install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()

install(FILES ${CMAKE_SOURCE_DIR}/packaging/completions/meridalctl.bash
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME meridalctl)

file(GLOB documents CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/docs/*.md ${CMAKE_SOURCE_DIR}/README.md)
install(FILES ${documents} DESTINATION ${CMAKE_INSTALL_DOCDIR})
