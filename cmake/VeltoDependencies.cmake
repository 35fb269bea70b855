# Everything outside this repository that the program stands on: Debian 12 packages (see `./dev setup`).

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(fmt REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(CLI11 REQUIRED)
find_package(ICU REQUIRED COMPONENTS uc i18n)
find_package(OpenSSL REQUIRED COMPONENTS Crypto SSL)
find_package(CURL REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(ZLIB REQUIRED)
pkg_check_modules(TAGLIB REQUIRED IMPORTED_TARGET taglib)
pkg_check_modules(LIBSECRET REQUIRED IMPORTED_TARGET libsecret-1)
pkg_check_modules(HTTPLIB REQUIRED IMPORTED_TARGET cpp-httplib)

add_library(velto_asio INTERFACE)
# Without the last one, whether asio allocates with std::aligned_alloc depends on what a file includes before it, and
# object files would disagree.
target_compile_definitions(velto_asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED ASIO_DISABLE_STD_ALIGNED_ALLOC)
target_link_libraries(velto_asio INTERFACE Threads::Threads)
# GCC 12 takes the frame allocator of an inlined coroutine for a mismatch.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(velto_asio INTERFACE -Wno-mismatched-new-delete)
endif()

if(VELTO_TESTS)
  find_package(GTest REQUIRED)
endif()
