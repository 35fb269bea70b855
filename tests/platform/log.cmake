velto_test(log_test
  SOURCES LogTest.cpp
  USES platform_log
  LABELS concurrency)
