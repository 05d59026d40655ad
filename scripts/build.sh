#!/usr/bin/env bash
# Main job: builds the Windows module dist/KSCinebar.aex (MinGW-w64 cross
# build, preset win64; stripped and signed, its debug information in
# dist/KSCinebar.aex.debug) and the release made from it: the signed
# installer and MSI package, the zip bundle and SHA256SUMS with its signature
# in dist/, which is replaced whole or not at all. The signing key is read from
# this environment on every build, even in a tree configured without it: a
# token's (CINEBAR_SIGN_PKCS11_MODULE, _KEY, CINEBAR_SIGN_CERT, PIN in
# CINEBAR_SIGN_PIN) or a PKCS#12 file's (CINEBAR_SIGN_PKCS12, password in
# CINEBAR_SIGN_PASSWORD) when set, else a test certificate made in the build
# tree (packaging/CMakeLists.txt). Then builds the command-line tool natively
# (preset native-release) and renders the preview images and the contact
# sheet into dist/previews/ with `cinebar demo`. Installs missing build
# packages first when run as root.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=scripts/deps.sh
source scripts/deps.sh
cinebar_ensure_packages

cmake --preset win64
cmake --build --preset win64 --target KSCinebar cinebar_release

module=dist/KSCinebar.aex
if [ ! -f "$module" ]; then
  echo "error: the build did not produce $module" >&2
  exit 1
fi
echo "Built $module ($(stat -c %s "$module") bytes)"
# The release files are the ones SHA256SUMS lists.
if [ ! -f dist/SHA256SUMS ]; then
  echo "error: the build did not produce dist/SHA256SUMS" >&2
  exit 1
fi
(cd dist && sha256sum --check --quiet SHA256SUMS)
# The CA certificates the build verified every signature against.
openssl cms -verify -binary -purpose any -content dist/SHA256SUMS -inform DER -in dist/SHA256SUMS.sig \
  -CAfile build/win64/packaging/signing/verify-ca.pem -out /dev/null 2>/dev/null ||
  { echo "error: dist/SHA256SUMS.sig does not verify" >&2; exit 1; }
echo "Release files, checked against dist/SHA256SUMS (signature verified):"
sed -E 's/^[0-9a-f]{64}  /  dist\//' dist/SHA256SUMS
# Without the issuer's CA at hand verify fails, but still names the signer.
report="$(osslsigncode verify -in "$module" 2>/dev/null || true)"
signer="$(sed -n 's/^[[:space:]]*Subject: //p' <<<"$report" | head -n 1)"
if [ -z "$signer" ]; then
  echo "error: $module carries no signature" >&2
  exit 1
fi
echo "Signed by: $signer"

# Previews: every preset in both render modes on a test chart, through the
# native build of the same module and the simulated host.
cmake --preset native-release
cmake --build --preset native-release --target cinebar
build/native-release/tools/cinebar/cinebar demo --out dist/previews --overwrite
echo "Previews: dist/previews/ (contact sheet: dist/previews/contact-sheet.png)"
