# shellcheck shell=bash disable=SC2034  # variables for the scripts that source this
# Sourced by sign.sh and sign_sums.sh: the signing settings, the key, the
# hand-over of its secret and the checks of its certificate.
#
# The settings come from the file named by CINEBAR_SIGN_SETTINGS (written by
# the build from its environment, signing_settings.cmake) or, without one,
# from the environment itself:
#   CINEBAR_SIGN_PKCS11_MODULE  PKCS#11 library of a hardware token or HSM,
#   CINEBAR_SIGN_PKCS11_KEY     the key on it (a pkcs11: URI),
#   CINEBAR_SIGN_CERT           its certificate, then the chain (PEM);
# or
#   CINEBAR_SIGN_PKCS12         a PKCS#12 file with key and chain;
# and
#   CINEBAR_SIGN_CAFILE         CA certificates a signature must verify against (empty: the system's),
#   CINEBAR_SIGN_TSA_CAFILE     the same for time stamps,
#   CINEBAR_SIGN_TIMESTAMP_URL  time-stamp servers, separated by blanks, tried in order,
#   CINEBAR_SIGN_TIMESTAMP_TIMEOUT  seconds each server is given (default 30).
# The token's PIN (CINEBAR_SIGN_PIN) or the file's password
# (CINEBAR_SIGN_PASSWORD) is always read from the environment. It reaches the
# signing tools through a pipe on descriptor 3: never in a file, never on a
# command line.

signing_fail() {
  echo "${signing_tool:-sign}: $*" >&2
  exit 1
}

# signing_scratch: a private folder for the run in TMPDIR, in signing_work,
# removed on exit and on HUP, INT and TERM. The folders of runs killed outright
# (SIGKILL), whose process is gone, are removed first.
signing_scratch() {
  local tmp="${TMPDIR:-/tmp}" folder pid
  for folder in "$tmp"/cinebar-sign.*.*; do
    pid="${folder#"$tmp"/cinebar-sign.}"
    pid="${pid%%.*}"
    [ ! -d "$folder" ] || kill -0 "$pid" 2>/dev/null || rm -rf "$folder" 2>/dev/null || true
  done
  signing_work="$(mktemp -d "$tmp/cinebar-sign.$$.XXXXXX")"
  trap 'rm -rf "$signing_work"' EXIT
  trap 'exit 129' HUP
  trap 'exit 130' INT
  trap 'exit 143' TERM
}

# signing_install <file> <destination>: puts a finished file in place, whole:
# copied beside it under a hidden name, then renamed.
signing_install() {
  local part
  part="$(dirname "$2")/.$(basename "$2").part"
  cp "$1" "$part"
  mv -f "$part" "$2"
}

# Sets signing_kind (pkcs11 or pkcs12) and signing_secret.
signing_load() {
  if [ -n "${CINEBAR_SIGN_SETTINGS:-}" ]; then
    [ -f "$CINEBAR_SIGN_SETTINGS" ] || signing_fail "no signing settings at $CINEBAR_SIGN_SETTINGS"
    # shellcheck source=/dev/null
    source "$CINEBAR_SIGN_SETTINGS"
  fi
  CINEBAR_SIGN_TIMESTAMP_TIMEOUT="${CINEBAR_SIGN_TIMESTAMP_TIMEOUT:-30}"
  [[ "$CINEBAR_SIGN_TIMESTAMP_TIMEOUT" =~ ^[1-9][0-9]*$ ]] ||
    signing_fail "CINEBAR_SIGN_TIMESTAMP_TIMEOUT is '$CINEBAR_SIGN_TIMESTAMP_TIMEOUT', not whole seconds"
  if [ -n "${CINEBAR_SIGN_PKCS11_MODULE:-}" ]; then
    local var
    for var in CINEBAR_SIGN_PKCS11_KEY CINEBAR_SIGN_CERT; do
      [ -n "${!var:-}" ] || signing_fail "CINEBAR_SIGN_PKCS11_MODULE is set but $var is not"
    done
    [ -f "$CINEBAR_SIGN_CERT" ] || signing_fail "no certificate at $CINEBAR_SIGN_CERT (CINEBAR_SIGN_CERT)"
    signing_kind=pkcs11
    signing_secret="${CINEBAR_SIGN_PIN:-}"
  elif [ -n "${CINEBAR_SIGN_PKCS12:-}" ]; then
    [ -f "$CINEBAR_SIGN_PKCS12" ] || signing_fail "no signing key at $CINEBAR_SIGN_PKCS12 (CINEBAR_SIGN_PKCS12)"
    signing_kind=pkcs12
    signing_secret="${CINEBAR_SIGN_PASSWORD:-}"
  else
    signing_fail "no signing key: set CINEBAR_SIGN_PKCS11_MODULE (and _KEY, CERT) or CINEBAR_SIGN_PKCS12"
  fi
  # Neither tool reads an empty secret from a descriptor: then it is given as empty.
  if [ -z "$signing_secret" ]; then
    osslsigncode_secret=(-pass "")
    openssl_secret=(-passin pass:)
  else
    osslsigncode_secret=(-readpass /dev/fd/3)
    openssl_secret=(-passin fd:3)
  fi
}

# with_secret <command...>: runs the command with the secret readable on descriptor 3.
with_secret() {
  "$@" 3< <(printf '%s' "$signing_secret")
}

# signing_certificates <folder>: the signing certificate into <folder>/signer.pem,
# the rest of its chain into <folder>/chain.pem (possibly empty).
signing_certificates() {
  if [ "$signing_kind" = pkcs11 ]; then
    awk -v signer="$1/signer.pem" -v chain="$1/chain.pem" '
      /-----BEGIN CERTIFICATE-----/ { n++ }
      n == 1 { print > signer } n > 1 { print > chain }' "$CINEBAR_SIGN_CERT"
    touch "$1/chain.pem"
  else
    with_secret openssl pkcs12 -in "$CINEBAR_SIGN_PKCS12" "${openssl_secret[@]}" -nokeys -clcerts \
      -out "$1/signer.pem" 2>"$1/log" || signing_fail "cannot read $CINEBAR_SIGN_PKCS12: $(cat "$1/log")"
    with_secret openssl pkcs12 -in "$CINEBAR_SIGN_PKCS12" "${openssl_secret[@]}" -nokeys -cacerts \
      -out "$1/chain.pem" 2>"$1/log" || signing_fail "cannot read $CINEBAR_SIGN_PKCS12: $(cat "$1/log")"
  fi
  [ -s "$1/signer.pem" ] || signing_fail "no certificate found for the signing key"
}

# signing_check_certificate <certificate> <signing time>: refuses a certificate
# that is not valid both at the signing time (the build date, which the
# signature carries) and now (when Windows first checks it and a time-stamp
# server countersigns), or that is not meant for code signing.
signing_check_certificate() {
  local subject start end when now
  subject="$(openssl x509 -in "$1" -noout -subject -nameopt compat | sed 's/^subject=//')"
  start="$(date -u -d "$(openssl x509 -in "$1" -noout -startdate | cut -d= -f2)" +%s)"
  end="$(date -u -d "$(openssl x509 -in "$1" -noout -enddate | cut -d= -f2)" +%s)"
  now="$(date -u +%s)"
  for when in "$2" "$now"; do
    if [ "$when" -lt "$start" ] || [ "$when" -gt "$end" ]; then
      signing_fail "the certificate $subject is valid from $(date -u -d "@$start") to $(date -u -d "@$end"):" \
        "not at $(date -u -d "@$when") ($([ "$when" = "$2" ] && echo "the build date" || echo "now"))"
    fi
  done
  openssl x509 -in "$1" -noout -ext extendedKeyUsage 2>/dev/null | grep -q 'Code Signing' ||
    signing_fail "the certificate $subject is not for code signing (no extended key usage Code Signing)"
}
