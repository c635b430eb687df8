# SPDX-License-Identifier: Apache-2.0
# What `cmake --install build/release` puts where, under CMAKE_INSTALL_PREFIX (/usr/local unless told otherwise). Each thing
# belongs to a component, of which packages are made: daemon, client, exporter, documents. What names none is the daemon's.
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

if(TARGET meridal-exporter)
  install(TARGETS meridal-exporter RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT exporter)
endif()

# component_of(RESULT FILE): whose a unit or a manual page is, by its name. What serves a program goes where that goes.
function(component_of result file)
  set(component daemon)
  if(file MATCHES "/meridalctl[^/]*$|/meridal-(textfile|alerts)[^/]*$")
    set(component client)
  elseif(file MATCHES "/meridal-exporter[^/]*$")
    set(component exporter)
  endif()
  set(${result} ${component} PARENT_SCOPE)
endfunction()

if(APPLE)
  file(GLOB plists CONFIGURE_DEPENDS ${packaging}/macos/*.plist)
  install(FILES ${plists} DESTINATION /Library/LaunchDaemons COMPONENT launchd)
else()
  file(GLOB units CONFIGURE_DEPENDS ${packaging}/linux/*.service ${packaging}/linux/*.socket
    ${packaging}/linux/*.timer)
  foreach(unit IN LISTS units)
    component_of(component ${unit})
    install(FILES ${unit} DESTINATION ${MERIDAL_UNIT_DIR} COMPONENT ${component})
  endforeach()
  install(FILES ${packaging}/linux/meridal-alerts.sysusers DESTINATION lib/sysusers.d RENAME meridal-alerts.conf
    COMPONENT client)
  file(GLOB userUnits CONFIGURE_DEPENDS ${packaging}/linux/user/*.service)
  install(FILES ${userUnits} DESTINATION lib/systemd/user COMPONENT client)
  install(FILES ${packaging}/linux/meridal.sysusers DESTINATION lib/sysusers.d RENAME meridal.conf)
endif()

# Lines, rules and a dashboard for who scrapes.
if(NOT APPLE)
  install(DIRECTORY ${packaging}/prometheus DESTINATION ${CMAKE_INSTALL_DATADIR}/meridal COMPONENT exporter)
endif()

if(MERIDAL_CONFIGURATION)
  install(FILES ${packaging}/meridald.conf DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/meridal)
else()
  install(FILES ${packaging}/meridald.conf DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
endif()

foreach(section 1 5 8)
  file(GLOB pages CONFIGURE_DEPENDS ${packaging}/*.${section})
  foreach(page IN LISTS pages)
    component_of(component ${page})
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
  endforeach()
endforeach()

# The protocol's page is made of its document, so that there is one text. Without lowdown there is none.
find_program(LOWDOWN lowdown)
if(LOWDOWN)
  set(protocolPage ${CMAKE_BINARY_DIR}/meridal-protocol.7)
  add_custom_command(OUTPUT ${protocolPage}
    COMMAND ${CMAKE_SOURCE_DIR}/tools/protocol-page ${protocolPage}
    DEPENDS ${CMAKE_SOURCE_DIR}/docs/protocol.md ${CMAKE_SOURCE_DIR}/tools/protocol-page VERBATIM)
  add_custom_target(protocol_page ALL DEPENDS ${protocolPage})
  install(FILES ${protocolPage} DESTINATION ${CMAKE_INSTALL_MANDIR}/man7 COMPONENT client)
endif()

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
install(DIRECTORY ${CMAKE_SOURCE_DIR}/docs/schemas DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documents)
install(FILES ${examples} DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT documents)
