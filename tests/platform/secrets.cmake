velto_program(keychain_probe
  SOURCES KeychainProbe.cpp
  USES platform_secrets)
velto_test(secrets_test
  SOURCES KeychainTest.cpp
  USES platform_secrets
  DEPENDS keychain_probe)
target_compile_definitions(secrets_test PRIVATE
  KEYCHAIN_PROBE="$<TARGET_FILE:keychain_probe>"
  WITH_KEYRING="${CMAKE_CURRENT_SOURCE_DIR}/with-keyring.sh")
