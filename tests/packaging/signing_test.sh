#!/usr/bin/env bash
# Signs the release through PKCS#11 with time stamps, the way a vendor signs
# with a key in a hardware token: a SoftHSM2 token in a private folder holds a
# test key, and a time-stamp authority on 127.0.0.1 (tsa.py) countersigns.
# The module, the installer, the uninstaller it writes and the MSI package
# are signed by the build's own scripts (sign.sh, package.sh) and must
# verify against the test CA, with a verified time stamp.
#
# tests/packaging/CMakeLists.txt sets the CINEBAR_* variables read below.
set -u -o pipefail

for var in CINEBAR_WINE64 CINEBAR_RELEASE_ENV CINEBAR_PACKAGING_DIR CINEBAR_UNSIGNED_MODULE CINEBAR_OSSLSIGNCODE \
           CINEBAR_SOFTHSM2 CINEBAR_PYTHON3 CINEBAR_RELEASE_EPOCH_FILE CINEBAR_PRODUCT CINEBAR_MODULE_NAME; do
  if [ -z "${!var:-}" ]; then
    echo "signing_test.sh: $var is not set (run it through ctest)" >&2
    exit 2
  fi
done
here="$(dirname "${BASH_SOURCE[0]}")"
# shellcheck source=tests/packaging/checks.sh
source "$here/checks.sh"
# shellcheck source=tests/packaging/wine.sh
source "$here/wine.sh"
# shellcheck source=tests/packaging/signing_fixtures.sh
source "$here/signing_fixtures.sh"
trap 'stop_servers; cleanup' EXIT
quiet() { "$@" >"$work/log" 2>&1 || { cat "$work/log" >&2; exit 2; }; }
make_token
start_tsa

# ---- signing through the token -----------------------------------------------------

unset CINEBAR_SIGN_PKCS12 CINEBAR_SIGN_PASSWORD
export CINEBAR_SIGN_PKCS11_MODULE="$CINEBAR_SOFTHSM2"
export CINEBAR_SIGN_PKCS11_KEY="pkcs11:token=cinebar-test;object=release;type=private"
export CINEBAR_SIGN_CERT="$work/chain.pem"
export CINEBAR_SIGN_PIN="$PIN"
# What every signature and time stamp must verify against before it is kept.
export CINEBAR_SIGN_CAFILE="$work/signing/test-ca.pem" CINEBAR_SIGN_TSA_CAFILE="$work/tsa/ca.pem"
# A server that does not answer first: the next one is asked.
CINEBAR_SIGN_TIMESTAMP_URL="http://127.0.0.1:9/ $tsa_url"
export CINEBAR_SIGN_TIMESTAMP_URL
out="$work/out"
mkdir "$out"
sign() { "$CINEBAR_PACKAGING_DIR/sign.sh" "$CINEBAR_OSSLSIGNCODE" "$CINEBAR_RELEASE_EPOCH_FILE" "$CINEBAR_PRODUCT" \
  "https://example.invalid/" "$@"; }
package() { "$CINEBAR_PACKAGING_DIR/package.sh" "$CINEBAR_RELEASE_ENV" "$@"; }
check "the module is signed" sign "$CINEBAR_UNSIGNED_MODULE" "$out/$CINEBAR_MODULE_NAME"
check "the installer is built and signed" package installer "$out/setup.exe"
check "the MSI package is built and signed" package msi "$out/package.msi"
check "a wrong PIN fails" not env CINEBAR_SIGN_PIN=0000 sign "$CINEBAR_UNSIGNED_MODULE" "$out/wrong-pin.aex" 2>/dev/null
check "... and writes nothing" test ! -e "$out/wrong-pin.aex"

# The uninstaller is signed inside makensis: install, then look at it.
new_prefix signing
"$WINE" "$(winepath_w "$out/setup.exe")" /S '/D=C:\Signed'
cp "$(unix_path "C:\\Signed\\Uninstall $CINEBAR_PRODUCT.exe")" "$out/uninstaller.exe"

signer="$(openssl x509 -in "$work/chain.pem" -noout -subject -nameopt compat | sed 's/^subject=//')"
for file in "$out/$CINEBAR_MODULE_NAME" "$out/setup.exe" "$out/uninstaller.exe" "$out/package.msi"; do
  name="$(basename "$file")"
  report="$("$CINEBAR_OSSLSIGNCODE" verify -CAfile "$work/signing/test-ca.pem" -TSA-CAfile "$work/tsa/ca.pem" \
    -in "$file" 2>&1)"
  echo "---- osslsigncode verify $name"
  echo "$report"
  check "$name: signature verifies" grep -q '^Signature verification: ok' <<<"$report"
  check "$name: signed by the key in the token" grep -qF "Subject: $signer" <<<"$report"
  check "$name: time-stamped" grep -qE '^(\s*Timestamp time|The signature is timestamped):' <<<"$report"
  check "$name: the time stamp's chain verifies" grep -q '^Timestamp Server Signature verification: ok' <<<"$report"
done

checks_summary
