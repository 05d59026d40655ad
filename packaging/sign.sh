#!/usr/bin/env bash
# Signs a Windows program, module or MSI package with Authenticode (SHA-256),
# in place or into a new file, with osslsigncode (Debian 12's 2.5 or newer).
#
#   sign.sh <osslsigncode> <epoch file> <description> <url> <file> [<signed file>]
#
# The description and the URL are what Windows shows of the signed file. The
# key, the CA certificates and the time-stamp servers are signing_key.sh's.
#
# The signing time is the build date in <epoch file> (seconds, UTC), not the
# clock's, so one file, key and date always give the same bytes. A
# certificate not valid at that date and now, or not for code signing, is
# refused before anything is signed. With CINEBAR_SIGN_TIMESTAMP_URL a
# time-stamp authority also countersigns with its own time (RFC 3161): the
# signature then outlives the certificate, but differs between builds. Each
# server gets CINEBAR_SIGN_TIMESTAMP_TIMEOUT seconds (default 30) before the
# next one is asked, so the whole wait is bounded by that times the number
# of servers; when none answers, signing fails.
#
# The signed file must verify against CINEBAR_SIGN_CAFILE (and its time stamp
# against CINEBAR_SIGN_TSA_CAFILE) before it takes the place of <signed file>;
# until then it lives in a private folder in TMPDIR, removed on any exit and,
# after a kill that allowed none, by the next run.
set -euo pipefail
if [ $# -lt 5 ] || [ $# -gt 6 ]; then
  echo "usage: $0 <osslsigncode> <epoch file> <description> <url> <file> [<signed file>]" >&2
  exit 2
fi
tool="$1" epoch_file="$2" description="$3" url="$4" in="$5" out="${6:-$5}"
time="$(cat "$epoch_file")"
signing_tool=sign.sh
# shellcheck source=packaging/signing_key.sh
source "$(dirname "${BASH_SOURCE[0]}")/signing_key.sh"

mkdir -p "$(dirname "$out")"
# What a run killed outright left beside the output: one rule signs one file at a time.
rm -f "$(dirname "$out")/.$(basename "$out").part"
signing_scratch
work="$signing_work"

signing_load
signing_certificates "$work"
signing_check_certificate "$work/signer.pem" "$time"

if [ "$signing_kind" = pkcs11 ]; then
  key=(-pkcs11module "$CINEBAR_SIGN_PKCS11_MODULE" -key "$CINEBAR_SIGN_PKCS11_KEY" -certs "$CINEBAR_SIGN_CERT")
else
  key=(-pkcs12 "$CINEBAR_SIGN_PKCS12")
fi
if ! with_secret "$tool" sign "${key[@]}" "${osslsigncode_secret[@]}" -h sha256 -time "$time" \
  -n "$description" -i "$url" -in "$in" -out "$work/signed" >"$work/log" 2>&1; then
  cat "$work/log" >&2
  signing_fail "signing $in failed"
fi

# timestamp <server>: countersigns $work/signed into $work/stamped within the time limit.
timestamp() {
  rm -f "$work/stamped"
  timeout --kill-after=5 "$CINEBAR_SIGN_TIMESTAMP_TIMEOUT" \
    "$tool" add -ts "$1" -in "$work/signed" -out "$work/stamped" >"$work/log" 2>&1
}
result="$work/signed"
read -ra servers <<<"${CINEBAR_SIGN_TIMESTAMP_URL:-}"
if [ ${#servers[@]} -gt 0 ]; then
  result=""
  for server in "${servers[@]}"; do
    if timestamp "$server"; then
      result="$work/stamped"
      break
    elif [ $? -ge 124 ]; then
      echo "sign.sh: time-stamp server $server: no answer within ${CINEBAR_SIGN_TIMESTAMP_TIMEOUT} s" >&2
    else
      echo "sign.sh: time-stamp server $server failed: $(grep -m 1 -iE 'failure|error' "$work/log")" >&2
    fi
  done
  [ -n "$result" ] || signing_fail "no time-stamp server answered (CINEBAR_SIGN_TIMESTAMP_URL): $in is not signed"
fi

verify=()
[ -z "${CINEBAR_SIGN_CAFILE:-}" ] || verify+=(-CAfile "$CINEBAR_SIGN_CAFILE")
[ -z "${CINEBAR_SIGN_TSA_CAFILE:-}" ] || verify+=(-TSA-CAfile "$CINEBAR_SIGN_TSA_CAFILE")
system="the system's CA certificates"
report="$("$tool" verify "${verify[@]}" -in "$result" 2>&1)" ||
  signing_fail "the signed $(basename "$out") does not verify against ${CINEBAR_SIGN_CAFILE:-$system}:
$report"
if [ ${#servers[@]} -gt 0 ] && ! grep -q '^Timestamp Server Signature verification: ok' <<<"$report"; then
  signing_fail "the time stamp on the signed $(basename "$out") does not verify against" \
    "${CINEBAR_SIGN_TSA_CAFILE:-$system}:
$report"
fi
signing_install "$result" "$out"
