velto_test(media_test
  SOURCES MediaAssetTest.cpp MediaDurationTest.cpp MediaExportTest.cpp
  USES platform_media platform_text
  LABELS concurrency)
