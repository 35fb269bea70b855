velto_test(model_test
  SOURCES ModelObjectsTest.cpp ModelSaveTest.cpp ModelStoreFileTest.cpp ModelBackgroundSaveTest.cpp
          ModelRemovalTest.cpp
  USES platform_model SQLite::SQLite3
  LABELS concurrency)
