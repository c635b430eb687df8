# Every library from outside, under one name for all hosts. A cross-build for macOS takes the header-only ones from the
# folder that the toolchain file offers and everything else from the SDK.

find_package(Threads REQUIRED)
add_library(meridal_threads INTERFACE)
target_link_libraries(meridal_threads INTERFACE Threads::Threads)
add_library(meridal::threads ALIAS meridal_threads)

foreach(name json fmt spdlog asio cli11 curses host sqlitecpp)
  add_library(meridal_dep_${name} INTERFACE)
  add_library(meridal::${name} ALIAS meridal_dep_${name})
endforeach()

target_compile_definitions(meridal_dep_asio INTERFACE
  ASIO_STANDALONE ASIO_NO_DEPRECATED ASIO_NO_TS_EXECUTORS ASIO_NO_TYPEID)
target_compile_definitions(meridal_dep_spdlog INTERFACE SPDLOG_FMT_EXTERNAL)

if(APPLE AND CMAKE_CROSSCOMPILING)
  foreach(name json fmt spdlog asio cli11)
    target_include_directories(meridal_dep_${name} SYSTEM INTERFACE ${MACOS_THIRD_PARTY_INCLUDE_DIR})
  endforeach()
  target_compile_definitions(meridal_dep_fmt INTERFACE FMT_HEADER_ONLY)
  target_compile_definitions(meridal_dep_spdlog INTERFACE FMT_HEADER_ONLY)
  # SQLiteCpp is not header-only. The link needs only the names that a Mac's copy has to offer: a list of those that we
  # use, in the form in which the SDK lists its own libraries. Whatever is not on it still fails to link.
  target_include_directories(meridal_dep_sqlitecpp SYSTEM INTERFACE ${MACOS_THIRD_PARTY_INCLUDE_DIR})
  target_link_libraries(meridal_dep_sqlitecpp INTERFACE ${CMAKE_SOURCE_DIR}/cmake/macos-libSQLiteCpp.tbd sqlite3)
else()
  find_package(nlohmann_json REQUIRED)
  target_link_libraries(meridal_dep_json INTERFACE nlohmann_json::nlohmann_json)
  find_package(fmt REQUIRED)
  target_link_libraries(meridal_dep_fmt INTERFACE fmt::fmt)
  find_package(spdlog REQUIRED)
  target_link_libraries(meridal_dep_spdlog INTERFACE spdlog::spdlog)
  find_package(CLI11 REQUIRED)
  target_link_libraries(meridal_dep_cli11 INTERFACE CLI11::CLI11)
  find_path(ASIO_INCLUDE_DIR asio.hpp REQUIRED)
  target_include_directories(meridal_dep_asio SYSTEM INTERFACE ${ASIO_INCLUDE_DIR})
  find_package(SQLite3 REQUIRED)
  find_package(SQLiteCpp REQUIRED)
  target_link_libraries(meridal_dep_sqlitecpp INTERFACE SQLiteCpp SQLite::SQLite3)
endif()
target_link_libraries(meridal_dep_asio INTERFACE Threads::Threads)

if(APPLE)
  target_link_libraries(meridal_dep_curses INTERFACE ncurses)
  foreach(framework Foundation CoreFoundation IOKit SystemConfiguration CoreWLAN)
    target_link_libraries(meridal_dep_host INTERFACE "-framework ${framework}")
  endforeach()
  target_link_libraries(meridal_dep_host INTERFACE objc pcap)
  # A library that a program links but does not use would still be loaded, and cost memory, at every start.
  target_link_options(meridal_dep_host INTERFACE -Wl,-dead_strip_dylibs)
else()
  find_package(PkgConfig REQUIRED)
  # Its flags ask glibc for less than what C++ has on already, and would only keep the precompiled header away.
  pkg_check_modules(ncursesw REQUIRED ncursesw)
  target_link_libraries(meridal_dep_curses INTERFACE ${ncursesw_LINK_LIBRARIES})
  pkg_check_modules(systemd REQUIRED IMPORTED_TARGET libsystemd)
  target_link_libraries(meridal_dep_host INTERFACE PkgConfig::systemd)
  pkg_check_modules(udev REQUIRED IMPORTED_TARGET libudev)
  target_link_libraries(meridal_dep_host INTERFACE PkgConfig::udev)
  pkg_check_modules(mnl REQUIRED IMPORTED_TARGET libmnl)
  target_link_libraries(meridal_dep_host INTERFACE PkgConfig::mnl)
  # Not by its own description, which adds the libraries of its static form.
  find_path(PCAP_INCLUDE_DIR pcap/pcap.h REQUIRED)
  find_library(PCAP_LIBRARY pcap REQUIRED)
  target_include_directories(meridal_dep_host SYSTEM INTERFACE ${PCAP_INCLUDE_DIR})
  target_link_libraries(meridal_dep_host INTERFACE ${PCAP_LIBRARY})
endif()
