velto_program(keyring_probe
  SOURCES KeyringProbe.cpp
  USES platform_keyring)
velto_test(keyring_test
  SOURCES KeyringTest.cpp
  USES platform_keyring
  DEPENDS keyring_probe)
target_compile_definitions(keyring_test PRIVATE
  KEYRING_PROBE="$<TARGET_FILE:keyring_probe>"
  WITH_KEYRING="${CMAKE_CURRENT_SOURCE_DIR}/with-keyring.sh")
