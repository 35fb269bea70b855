velto_test(text_test
  SOURCES TextTest.cpp
  USES platform_text)
