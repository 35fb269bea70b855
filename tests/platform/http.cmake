velto_test(http_test
  SOURCES HttpClientTest.cpp RawServer.cpp UrlTest.cpp
  USES platform_http platform_concurrency PkgConfig::HTTPLIB CURL::libcurl
  LABELS concurrency)
