# Decides at build time how the release is signed, from the environment the
# build runs in: each CINEBAR_SIGN_* setting set there (even empty) wins, one
# that is not falls back to the value configured in the cache (first
# configure or -D). With no key at all, the build tree's test certificate.
#
# Writes the settings (never the PIN or password, which sign.sh reads from the
# environment) and a digest of the key's certificate or file to OUTPUT, as
# lines of shell that signing_key.sh reads, only when they changed: every
# signing rule depends on OUTPUT, so a change re-signs everything and no
# change re-signs nothing. Copies the CA certificates that signatures are
# verified against to VERIFY_CA for the tests.
#
#   cmake -DCONFIGURED=<file> -DOUTPUT=<file> -DVERIFY_CA=<file>
#         -DTEST_PKCS12=<file> -DTEST_CAFILE=<file> -P signing_settings.cmake
#
# CONFIGURED holds set(configured_<name> ...) for every setting.
set(names CINEBAR_SIGN_PKCS11_MODULE CINEBAR_SIGN_PKCS11_KEY CINEBAR_SIGN_CERT CINEBAR_SIGN_PKCS12
          CINEBAR_SIGN_CAFILE CINEBAR_SIGN_TSA_CAFILE CINEBAR_SIGN_TIMESTAMP_URL CINEBAR_SIGN_TIMESTAMP_TIMEOUT)
include("${CONFIGURED}")
foreach(name IN LISTS names)
  if(DEFINED ENV{${name}})
    set(${name} "$ENV{${name}}")
  else()
    set(${name} "${configured_${name}}")
  endif()
endforeach()

if(CINEBAR_SIGN_PKCS11_MODULE)
  foreach(name CINEBAR_SIGN_PKCS11_KEY CINEBAR_SIGN_CERT)
    if(NOT ${name})
      message(FATAL_ERROR "CINEBAR_SIGN_PKCS11_MODULE is set, ${name} is not")
    endif()
  endforeach()
  set(key_files CINEBAR_SIGN_PKCS11_MODULE CINEBAR_SIGN_CERT)
  set(key_digest_file "${CINEBAR_SIGN_CERT}")
elseif(CINEBAR_SIGN_PKCS12)
  set(key_files CINEBAR_SIGN_PKCS12)
  set(key_digest_file "${CINEBAR_SIGN_PKCS12}")
else()
  set(CINEBAR_SIGN_PKCS12 "${TEST_PKCS12}")
  if(NOT CINEBAR_SIGN_CAFILE)
    set(CINEBAR_SIGN_CAFILE "${TEST_CAFILE}")
  endif()
  set(key_files "")
  set(key_digest_file "${TEST_PKCS12}")
endif()
foreach(name IN LISTS key_files ITEMS CINEBAR_SIGN_CAFILE CINEBAR_SIGN_TSA_CAFILE)
  if(${name} AND NOT EXISTS "${${name}}")
    message(FATAL_ERROR "${name}: no file ${${name}}")
  endif()
endforeach()
if(NOT CINEBAR_SIGN_TIMESTAMP_TIMEOUT MATCHES "^([1-9][0-9]*)?$")
  message(FATAL_ERROR "CINEBAR_SIGN_TIMESTAMP_TIMEOUT is '${CINEBAR_SIGN_TIMESTAMP_TIMEOUT}', not whole seconds")
endif()
file(SHA256 "${key_digest_file}" CINEBAR_SIGN_KEY_DIGEST)

set(text "# Written at build time by packaging/signing_settings.cmake; read by signing_key.sh.\n")
foreach(name IN LISTS names ITEMS CINEBAR_SIGN_KEY_DIGEST)
  string(REPLACE "'" "'\\''" value "${${name}}")
  string(APPEND text "${name}='${value}'\n")
endforeach()
set(old "")
if(EXISTS "${OUTPUT}")
  file(READ "${OUTPUT}" old)
endif()
if(NOT old STREQUAL text)
  file(WRITE "${OUTPUT}" "${text}")
  message(STATUS "Signing settings changed: everything is signed again")
endif()

set(ca "${CINEBAR_SIGN_CAFILE}")
if(NOT ca)
  set(ca /etc/ssl/certs/ca-certificates.crt)
endif()
file(COPY_FILE "${ca}" "${VERIFY_CA}" ONLY_IF_DIFFERENT)
