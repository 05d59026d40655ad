#!/usr/bin/env bash
# Signs a Windows program or module with Authenticode (SHA-256), in place or
# into a new file, with osslsigncode.
#
#   sign.sh <osslsigncode> <pkcs12 file> <signing time> <description> <url> <file> [<signed file>]
#
# The description and the URL are what Windows shows of the signed program.
# The password of the pkcs12 file comes from CINEBAR_SIGN_PASSWORD (empty when
# unset) and reaches osslsigncode in a private file, never on a command line. The
# signing time (seconds, UTC) is written into the signature instead of the
# clock's, so the same file, key and time always give the same bytes. No
# time-stamp server is asked: that would need the network and add a time of
# its own.
set -euo pipefail
if [ $# -lt 6 ] || [ $# -gt 7 ]; then
  echo "usage: $0 <osslsigncode> <pkcs12 file> <signing time> <description> <url> <file> [<signed file>]" >&2
  exit 2
fi
tool="$1" pkcs12="$2" time="$3" description="$4" url="$5" in="$6" out="${7:-$6}"
if [ ! -f "$pkcs12" ]; then
  echo "sign.sh: no signing key at $pkcs12" >&2
  exit 1
fi
# osslsigncode writes a new file; a failed run leaves no half-signed one behind.
part="$out.signing"
rm -f "$part"
private="$(umask 077 && mktemp -d "${TMPDIR:-/tmp}/cinebar-sign.XXXXXX")"
trap 'rm -rf "$private" "$part"' EXIT
password=(-pass "")
if [ -n "${CINEBAR_SIGN_PASSWORD:-}" ]; then
  # A file only this user can read: osslsigncode 2.5 reads no pipe.
  printf '%s' "$CINEBAR_SIGN_PASSWORD" >"$private/password"
  password=(-readpass "$private/password")
fi
if ! "$tool" sign -pkcs12 "$pkcs12" "${password[@]}" -h sha256 -time "$time" -n "$description" -i "$url" \
  -in "$in" -out "$part" >"$private/log" 2>&1; then
  cat "$private/log" >&2
  exit 1
fi
mv -f "$part" "$out"
