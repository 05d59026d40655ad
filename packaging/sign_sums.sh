#!/usr/bin/env bash
# Signs a list of sums (SHA256SUMS) with the release key: a detached CMS
# signature in DER, <sums>.sig, that
#   openssl cms -verify -binary -purpose any -content SHA256SUMS -inform DER -in SHA256SUMS.sig -CAfile <CA>
# accepts (-purpose any: a code-signing certificate is not one for e-mail,
# which openssl cms checks for by default). It carries the certificate and
# chain and no signed attributes (no signing time), so one key and one list
# give the same bytes. The key and CA certificates are signing_key.sh's; the
# certificate is checked as sign.sh checks it, and the signature is verified
# before it is written.
#
#   sign_sums.sh <epoch file> <sums>
set -euo pipefail
if [ $# -ne 2 ]; then
  echo "usage: $0 <epoch file> <sums>" >&2
  exit 2
fi
epoch_file="$1" sums="$2"
signing_tool=sign_sums.sh
# shellcheck source=packaging/signing_key.sh
source "$(dirname "${BASH_SOURCE[0]}")/signing_key.sh"

signing_scratch
work="$signing_work"

signing_load
signing_certificates "$work"
signing_check_certificate "$work/signer.pem" "$(cat "$epoch_file")"
chain=()
[ ! -s "$work/chain.pem" ] || chain=(-certfile "$work/chain.pem")
if [ "$signing_kind" = pkcs11 ]; then
  # The engine is told which library to load by a configuration of its own.
  cat >"$work/openssl.cnf" <<CNF
openssl_conf = init
[init]
engines = engines
[engines]
pkcs11 = pkcs11
[pkcs11]
engine_id = pkcs11
MODULE_PATH = $CINEBAR_SIGN_PKCS11_MODULE
CNF
  export OPENSSL_CONF="$work/openssl.cnf"
  key=(-engine pkcs11 -keyform engine -inkey "$CINEBAR_SIGN_PKCS11_KEY")
else
  key=(-keyform P12 -inkey "$CINEBAR_SIGN_PKCS12")
fi
if ! with_secret openssl cms -sign -binary -noattr -md sha256 -in "$sums" -signer "$work/signer.pem" \
  "${chain[@]}" "${key[@]}" "${openssl_secret[@]}" -outform DER -out "$work/sig" >"$work/log" 2>&1; then
  cat "$work/log" >&2
  signing_fail "signing $sums failed"
fi
ca=()
[ -z "${CINEBAR_SIGN_CAFILE:-}" ] || ca=(-CAfile "$CINEBAR_SIGN_CAFILE")
openssl cms -verify -binary -purpose any -content "$sums" -inform DER -in "$work/sig" "${ca[@]}" \
  -out /dev/null >"$work/log" 2>&1 ||
  signing_fail "the signature of $sums does not verify: $(cat "$work/log")"
signing_install "$work/sig" "$sums.sig"
