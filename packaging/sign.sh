#!/usr/bin/env bash
# Signs a Windows program, module or MSI package with Authenticode (SHA-256),
# in place or into a new file, with osslsigncode (Debian 12's 2.5 or newer).
#
#   sign.sh <osslsigncode> <epoch file> <description> <url> <file> [<signed file>]
#
# The description and the URL are what Windows shows of the signed file. The
# key comes from the environment, first match wins:
#   CINEBAR_SIGN_PKCS11_MODULE  PKCS#11 provider library of a hardware token or HSM,
#   CINEBAR_SIGN_PKCS11_KEY     the key on it (a pkcs11: URI),
#   CINEBAR_SIGN_CERT           the certificate chain (PEM),
#   CINEBAR_SIGN_PIN            the token's PIN;
# or
#   CINEBAR_SIGN_PKCS12         a PKCS#12 file with key and chain,
#   CINEBAR_SIGN_PASSWORD       its password (empty when unset).
# PIN and password reach osslsigncode in a file only this user can read,
# removed afterwards, never on a command line.
#
# The signing time is the build date in <epoch file> (seconds, UTC), not the
# clock's, so one file, key and date always give the same bytes. With
# CINEBAR_SIGN_TIMESTAMP_URL (one or more URLs, separated by blanks, tried in
# order) a time-stamp authority also countersigns with its own time (RFC
# 3161): the signature then outlives the certificate, but differs between
# builds.
set -euo pipefail
if [ $# -lt 5 ] || [ $# -gt 6 ]; then
  echo "usage: $0 <osslsigncode> <epoch file> <description> <url> <file> [<signed file>]" >&2
  exit 2
fi
tool="$1" epoch_file="$2" description="$3" url="$4" in="$5" out="${6:-$5}"
time="$(cat "$epoch_file")"

private="$(umask 077 && mktemp -d "${TMPDIR:-/tmp}/cinebar-sign.XXXXXX")"
# osslsigncode writes a new file; a failed run leaves no half-signed one behind.
part="$out.signing"
rm -f "$part"
trap 'rm -rf "$private" "$part"' EXIT
# A PIN or password in a file (osslsigncode 2.5 reads no pipe), which
# osslsigncode cannot read when empty: then -pass "".
secret() {
  if [ -z "$1" ]; then
    secret=(-pass "")
  else
    printf '%s' "$1" >"$private/secret"
    secret=(-readpass "$private/secret")
  fi
}

if [ -n "${CINEBAR_SIGN_PKCS11_MODULE:-}" ]; then
  for var in CINEBAR_SIGN_PKCS11_KEY CINEBAR_SIGN_CERT; do
    if [ -z "${!var:-}" ]; then
      echo "sign.sh: CINEBAR_SIGN_PKCS11_MODULE is set but $var is not" >&2
      exit 1
    fi
  done
  secret "${CINEBAR_SIGN_PIN:-}"
  key=(-pkcs11module "$CINEBAR_SIGN_PKCS11_MODULE" -key "$CINEBAR_SIGN_PKCS11_KEY" -certs "$CINEBAR_SIGN_CERT"
       "${secret[@]}")
elif [ -n "${CINEBAR_SIGN_PKCS12:-}" ]; then
  if [ ! -f "$CINEBAR_SIGN_PKCS12" ]; then
    echo "sign.sh: no signing key at $CINEBAR_SIGN_PKCS12" >&2
    exit 1
  fi
  secret "${CINEBAR_SIGN_PASSWORD:-}"
  key=(-pkcs12 "$CINEBAR_SIGN_PKCS12" "${secret[@]}")
else
  echo "sign.sh: no signing key: set CINEBAR_SIGN_PKCS11_MODULE (and _KEY, CERT) or CINEBAR_SIGN_PKCS12" >&2
  exit 1
fi
timestamps=()
for tsa in ${CINEBAR_SIGN_TIMESTAMP_URL:-}; do
  timestamps+=(-ts "$tsa")
done

if ! "$tool" sign "${key[@]}" -h sha256 -time "$time" "${timestamps[@]}" -n "$description" -i "$url" \
  -in "$in" -out "$part" >"$private/log" 2>&1; then
  cat "$private/log" >&2
  exit 1
fi
mv -f "$part" "$out"
