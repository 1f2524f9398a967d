# Third-party libraries, each linked by the layer that uses it. Boost is linked statically:
# the tool is started once per change, thousands of times a day, and every shared library
# costs at each start.

set(Boost_USE_STATIC_LIBS ON)
find_package(Boost 1.74 REQUIRED COMPONENTS filesystem program_options)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBIDN REQUIRED IMPORTED_TARGET libidn)
pkg_check_modules(MARIADB REQUIRED IMPORTED_TARGET libmariadb)

set(MAILVEK_THIRD_PARTY_layer_lib PkgConfig::LIBIDN OpenSSL::Crypto crypt)
set(MAILVEK_THIRD_PARTY_layer_util Boost::filesystem)
set(MAILVEK_THIRD_PARTY_layer_mysql PkgConfig::MARIADB)
set(MAILVEK_THIRD_PARTY_layer_commands Boost::program_options)
