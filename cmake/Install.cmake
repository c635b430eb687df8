# SPDX-License-Identifier: Apache-2.0
# What `cmake --install build/release` puts where, under CMAKE_INSTALL_PREFIX (/usr/local unless told otherwise). Each thing
# belongs to a component, of which packages are made: daemon, client, documents. What names none is the daemon's.
include(GNUInstallDirs)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME daemon)

# Not CMAKE_INSTALL_LIBDIR: systemd looks in lib below /usr and /usr/local whatever the architecture.
set(MERIDAL_UNIT_DIR lib/systemd/system CACHE STRING "Where systemd's units go")
set(MERIDAL_ZSH_DIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING "Where zsh looks for completions")
# A package manager keeps what an administrator wrote; installing by hand would undo it, so that installs an example.
option(MERIDAL_CONFIGURATION "Install the configuration file itself, not an example of it" OFF)

set(packaging ${CMAKE_SOURCE_DIR}/packaging)

if(APPLE)
  set(folder ${CMAKE_INSTALL_LIBEXECDIR}) # of which the property list knows
else()
  set(folder ${CMAKE_INSTALL_SBINDIR})
endif()
foreach(program meridald meridal-disks)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION ${folder})
  endif()
endforeach()
if(TARGET meridalctl)
  install(TARGETS meridalctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT client)
endif()

if(APPLE)
  file(GLOB plists CONFIGURE_DEPENDS ${packaging}/macos/*.plist)
  install(FILES ${plists} DESTINATION /Library/LaunchDaemons COMPONENT launchd)
else()
  file(GLOB units CONFIGURE_DEPENDS ${packaging}/linux/*.service ${packaging}/linux/*.socket)
  install(FILES ${units} DESTINATION ${MERIDAL_UNIT_DIR})
  install(FILES ${packaging}/linux/meridal.sysusers DESTINATION lib/sysusers.d RENAME meridal.conf)
endif()

if(MERIDAL_CONFIGURATION)
  install(FILES ${packaging}/meridald.conf DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/meridal)
else()
  install(FILES ${packaging}/meridald.conf DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
endif()

foreach(section 1 5 8)
  file(GLOB pages CONFIGURE_DEPENDS ${packaging}/*.${section})
  foreach(page IN LISTS pages)
    set(component daemon)
    if(page MATCHES "/meridalctl[^/]*$")
      set(component client)
    endif()
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
  endforeach()
endforeach()

# completion(FILE FOLDER NAME)
function(completion file folder name)
  if(EXISTS ${packaging}/completions/${file})
    install(FILES ${packaging}/completions/${file} DESTINATION ${folder} RENAME ${name} COMPONENT client)
  endif()
endfunction()
completion(meridalctl.bash ${CMAKE_INSTALL_DATADIR}/bash-completion/completions meridalctl)
completion(meridalctl.fish ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d meridalctl.fish)
completion(meridalctl.zsh ${MERIDAL_ZSH_DIR} _meridalctl)

file(GLOB documents CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/docs/*.md ${CMAKE_SOURCE_DIR}/*.md ${CMAKE_SOURCE_DIR}/NOTICE)
list(FILTER documents EXCLUDE REGEX "/CONTRIBUTING.md$")
install(FILES ${documents} DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documents)
file(GLOB examples CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/docs/example_*.py)
install(FILES ${examples} DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT documents)
