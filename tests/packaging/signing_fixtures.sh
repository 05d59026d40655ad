# shellcheck shell=bash disable=SC2034,SC2154  # $work is checks.sh's; URLs are for the sourcing script
# Sourced after checks.sh by the signing tests: a SoftHSM2 token holding a test key, a time-stamp
# authority on 127.0.0.1 (tsa.py), one that never answers, and signing settings that use them.

readonly PIN=4711-test
# Test certificates with chosen dates and usage, from this tree whichever packaging is tested.
make_certificate() { quiet "$(dirname "${BASH_SOURCE[0]}")/../../packaging/make-test-certificate.sh" "$@"; }
server_pids=()
stop_servers() {
  local pid
  for pid in "${server_pids[@]}"; do kill "$pid" 2>/dev/null || true; done
}
at_exit+=(stop_servers)

# make_token: a test CA and key in $work/signing, the key in a SoftHSM2 token
# "cinebar-test" (PIN $PIN, object "release"), its certificate and chain in
# $work/chain.pem.
make_token() {
  make_certificate "$work/signing"
  openssl pkcs12 -in "$work/signing/test-signing.p12" -passin pass: -nodes -nocerts |
    quiet openssl pkcs8 -topk8 -nocrypt -out "$work/key.p8"
  quiet openssl pkcs12 -in "$work/signing/test-signing.p12" -passin pass: -nokeys -out "$work/chain.pem"
  mkdir "$work/tokens"
  export SOFTHSM2_CONF="$work/softhsm2.conf"
  printf 'directories.tokendir = %s\nobjectstore.backend = file\nlog.level = ERROR\n' "$work/tokens" >"$SOFTHSM2_CONF"
  quiet softhsm2-util --init-token --free --label cinebar-test --so-pin 87654321 --pin "$PIN"
  quiet softhsm2-util --import "$work/key.p8" --token cinebar-test --label release --id 01 --pin "$PIN"
  rm -f "$work/key.p8"
}

# serve <port file> <tsa.py arguments...>: starts tsa.py, waits for its port.
serve() {
  local port_file="$1"
  shift
  "$PYTHON3" "$(dirname "${BASH_SOURCE[0]}")/tsa.py" "$@" &
  server_pids+=($!)
  eventually test -f "$port_file" || { echo "tsa.py $* did not start" >&2; exit 2; }
}

# start_tsa: a time-stamp authority with a test CA of its own ($work/tsa/test-ca.pem);
# its URL in tsa_url.
start_tsa() {
  local tsa="$work/tsa"
  make_certificate "$tsa" 19700101000000Z 20991231235959Z timeStamping
  quiet openssl pkcs12 -in "$tsa/test-signing.p12" -passin pass: -nodes -nocerts -out "$tsa/tsa.key"
  quiet openssl pkcs12 -in "$tsa/test-signing.p12" -passin pass: -clcerts -nokeys -out "$tsa/tsa.pem"
  echo 01 >"$tsa/serial"
  printf '%s\n' "[tsa]" "default_tsa = test" "[test]" "serial = $tsa/serial" "signer_cert = $tsa/tsa.pem" \
    "certs = $tsa/test-ca.pem" "signer_key = $tsa/tsa.key" "signer_digest = sha256" "digests = sha256" \
    "default_policy = 1.3.6.1.4.1.57264.1" "ess_cert_id_alg = sha256" >"$tsa/ts.cnf"
  serve "$tsa/port" "$tsa/ts.cnf" "$tsa/port"
  tsa_url="http://127.0.0.1:$(cat "$tsa/port")/"
}

# start_silent_server <name>: a server that accepts and never answers; its URL
# in silent_url, the connections it took counted in $work/<name>.port.connections.
start_silent_server() {
  serve "$work/$1.port" --silent "$work/$1.port"
  silent_url="http://127.0.0.1:$(cat "$work/$1.port")/"
}

# The signing settings: a key in a PKCS#12 file (make-test-certificate.sh's, in
# <folder>), or the token's.
use_pkcs12() {
  export CINEBAR_SIGN_PKCS12="$1/test-signing.p12" CINEBAR_SIGN_CAFILE="$1/test-ca.pem" CINEBAR_SIGN_PASSWORD=""
}
use_token() {
  export CINEBAR_SIGN_PKCS11_MODULE="$CINEBAR_SOFTHSM2" CINEBAR_SIGN_PIN="$PIN"
  export CINEBAR_SIGN_PKCS11_KEY="pkcs11:token=cinebar-test;object=release;type=private"
  export CINEBAR_SIGN_CERT="$work/chain.pem" CINEBAR_SIGN_CAFILE="$work/signing/test-ca.pem"
}
