# Everything outside this repository that the program stands on: Debian 12 packages (see `./dev setup`).

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(fmt REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(CLI11 REQUIRED)
find_package(ICU REQUIRED COMPONENTS uc i18n)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(CURL REQUIRED)
find_package(SQLite3 REQUIRED)
pkg_check_modules(TAGLIB REQUIRED IMPORTED_TARGET taglib)
pkg_check_modules(LIBSECRET REQUIRED IMPORTED_TARGET libsecret-1)

add_library(velto_asio INTERFACE)
target_compile_definitions(velto_asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED)
target_link_libraries(velto_asio INTERFACE Threads::Threads)

if(VELTO_TESTS)
  find_package(GTest REQUIRED)
endif()
if(VELTO_BENCH)
  find_package(benchmark REQUIRED)
endif()
