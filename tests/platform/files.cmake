velto_test(files_test
  SOURCES ChildProcessTest.cpp FilesTest.cpp ValueFileTest.cpp
  USES platform_files
  LABELS concurrency)
