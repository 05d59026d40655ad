# Signing in the build: included by packaging/CMakeLists.txt.

# cinebar_add_signing_settings()
# Adds the target cinebar_signing_settings, run on every build, that writes
# the signing settings from the build's environment and the cache
# (signing_settings.cmake), and a throwaway test CA and certificate for a
# build given no key. Sets, for the signing rules here and in other folders:
#   CINEBAR_SIGN_ENV           the `cmake -E env` arguments of every signing command
#   CINEBAR_SIGN_KEY_DEPENDS   what every signing rule depends on
#   CINEBAR_SIGN_VERIFY_CAFILE the CA certificates signatures verify against
function(cinebar_add_signing_settings)
  find_program(CINEBAR_OPENSSL openssl REQUIRED DOC "OpenSSL command (Debian package openssl)")
  set(dir "${CMAKE_CURRENT_BINARY_DIR}/signing")
  set(test_pkcs12 "${dir}/test-signing.p12")
  set(test_cafile "${dir}/test-ca.pem")
  # Made once per build tree: a new key would re-sign everything on every build.
  add_custom_command(
    OUTPUT "${test_pkcs12}" "${test_cafile}"
    COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/make-test-certificate.sh" "${dir}"
    DEPENDS make-test-certificate.sh
    COMMENT "Making a throwaway test signing certificate (not trusted)"
    VERBATIM)

  set(configured "")
  foreach(name CINEBAR_SIGN_PKCS11_MODULE CINEBAR_SIGN_PKCS11_KEY CINEBAR_SIGN_CERT CINEBAR_SIGN_PKCS12
               CINEBAR_SIGN_CAFILE CINEBAR_SIGN_TSA_CAFILE CINEBAR_SIGN_TIMESTAMP_URL CINEBAR_SIGN_TIMESTAMP_TIMEOUT)
    string(APPEND configured "set(configured_${name} [==[${${name}}]==])\n")
  endforeach()
  file(WRITE "${dir}/configured.cmake" "${configured}")
  set(settings "${dir}/settings.env")
  set(verify_ca "${dir}/verify-ca.pem")
  add_custom_target(cinebar_signing_settings
    COMMAND "${CMAKE_COMMAND}" "-DCONFIGURED=${dir}/configured.cmake" "-DOUTPUT=${settings}"
            "-DVERIFY_CA=${verify_ca}" "-DTEST_PKCS12=${test_pkcs12}" "-DTEST_CAFILE=${test_cafile}"
            -P "${CMAKE_CURRENT_SOURCE_DIR}/signing_settings.cmake"
    BYPRODUCTS "${settings}" "${verify_ca}"
    DEPENDS "${test_pkcs12}" "${test_cafile}" signing_settings.cmake
    COMMENT "Reading the signing settings"
    VERBATIM)

  set(CINEBAR_SIGN_ENV "CINEBAR_SIGN_SETTINGS=${settings}" CACHE INTERNAL "")
  set(CINEBAR_SIGN_KEY_DEPENDS "${settings}" cinebar_signing_settings "${CMAKE_CURRENT_SOURCE_DIR}/signing_key.sh"
      CACHE INTERNAL "")
  set(CINEBAR_SIGN_VERIFY_CAFILE "${verify_ca}" CACHE INTERNAL "")
endfunction()
