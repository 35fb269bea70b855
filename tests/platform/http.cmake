velto_test(http_test
  SOURCES HttpClientTest.cpp RawServer.cpp
  USES platform_http platform_concurrency CURL::libcurl OpenSSL::SSL
  LABELS concurrency)
