velto_test(model_test
  SOURCES ModelObjectsTest.cpp ModelSaveTest.cpp ModelStoreFileTest.cpp ModelBackgroundSaveTest.cpp
          ModelRollbackTest.cpp
  USES platform_model SQLite::SQLite3
  LABELS concurrency)
