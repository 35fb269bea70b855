velto_test(files_test
  SOURCES ChildProcessTest.cpp FilesTest.cpp UserDefaultsTest.cpp
  USES platform_files
  LABELS concurrency)
