# Third-party libraries, each linked by the room that uses it. Boost, SQLite and the panel
# database's client are linked statically: the tool starts thousands of times a day, once per change,
# and every shared library costs time at each start. The release preset (MAILVEK_ALL_STATIC) links
# libidn and OpenSSL statically too: loading OpenSSL took as long as the rest of a start. The tests
# link them shared, so that the libraries' own allocations are not counted as the tool's.

option(MAILVEK_ALL_STATIC "Link libidn and OpenSSL statically too" OFF)
set(OPENSSL_USE_STATIC_LIBS ${MAILVEK_ALL_STATIC})
set(Boost_USE_STATIC_LIBS ON)
find_package(Boost 1.74 REQUIRED COMPONENTS filesystem program_options)
find_package(OpenSSL REQUIRED COMPONENTS Crypto SSL)
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBIDN REQUIRED IMPORTED_TARGET libidn)
pkg_check_modules(MARIADB REQUIRED libmariadb)

# What a static OpenSSL itself wants to be linked with differs between its builds: its own description
# tells, for example libzstd.
if(MAILVEK_ALL_STATIC)
  pkg_check_modules(LIBCRYPTO REQUIRED libcrypto)
  set(wanted ${LIBCRYPTO_STATIC_LIBRARIES})
  list(REMOVE_ITEM wanted crypto ${CMAKE_DL_LIBS})
  foreach(name ${wanted})
    find_library(OPENSSL_WANTS_${name} lib${name}.a REQUIRED)
    target_link_libraries(OpenSSL::Crypto INTERFACE ${OPENSSL_WANTS_${name}})
  endforeach()
endif()

set(libidn PkgConfig::LIBIDN)
if(MAILVEK_ALL_STATIC)
  find_library(LIBIDN_ARCHIVE libidn.a REQUIRED)
  add_library(LibIDN::Archive STATIC IMPORTED)
  set_target_properties(LibIDN::Archive PROPERTIES
    IMPORTED_LOCATION ${LIBIDN_ARCHIVE}
    INTERFACE_INCLUDE_DIRECTORIES "${LIBIDN_INCLUDE_DIRS}")
  set(libidn LibIDN::Archive)
endif()

find_path(SQLITE3_INCLUDE_DIR sqlite3.h REQUIRED)
find_library(SQLITE3_ARCHIVE libsqlite3.a REQUIRED)
add_library(SQLite3::Archive STATIC IMPORTED)
set_target_properties(SQLite3::Archive PROPERTIES
  IMPORTED_LOCATION ${SQLITE3_ARCHIVE}
  INTERFACE_INCLUDE_DIRECTORIES ${SQLITE3_INCLUDE_DIR}
  INTERFACE_LINK_LIBRARIES m)

find_library(MARIADB_ARCHIVE libmariadb.a REQUIRED)
find_library(ZLIB_ARCHIVE libz.a REQUIRED)
add_library(MariaDB::Archive STATIC IMPORTED)
set_target_properties(MariaDB::Archive PROPERTIES
  IMPORTED_LOCATION ${MARIADB_ARCHIVE}
  INTERFACE_INCLUDE_DIRECTORIES "${MARIADB_INCLUDE_DIRS}"
  INTERFACE_LINK_LIBRARIES "${ZLIB_ARCHIVE};OpenSSL::SSL;OpenSSL::Crypto;dl;m")

set(MAILVEK_THIRD_PARTY_room_lib_names ${libidn})
set(MAILVEK_THIRD_PARTY_room_lib_host crypt)
set(MAILVEK_THIRD_PARTY_room_lib_panel MariaDB::Archive)
set(MAILVEK_THIRD_PARTY_room_lib_files OpenSSL::Crypto)
set(MAILVEK_THIRD_PARTY_room_lib_programs Boost::headers)
set(MAILVEK_THIRD_PARTY_room_mail_lib_accounts SQLite3::Archive)
set(MAILVEK_THIRD_PARTY_room_util Boost::filesystem)
set(MAILVEK_THIRD_PARTY_room_mysql MariaDB::Archive)
set(MAILVEK_THIRD_PARTY_room_commands Boost::program_options)
