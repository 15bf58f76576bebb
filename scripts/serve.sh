#!/usr/bin/env bash
# Builds the provider library, tovra-cimd, and the listener (tovra-cim) and
# simulator control command (tovra-sim) that show alerts, then serves CIM-XML on loopback
# with the simulated adapter preloaded, until Ctrl-C or SIGTERM: HTTP on
# $TOVRA_PORT (default 5988) and HTTPS on $TOVRA_HTTPS_PORT (default 5989).
# Users come from $TOVRA_USERS (name:crypt-hash:level lines); without it a
# file with the one read-write user "admin", password "secret", is made in
# build/. HTTPS uses $TOVRA_CERT and $TOVRA_KEY; without them a self-signed
# pair for 127.0.0.1 is made in build/ with openssl. Extra arguments go to
# tovra-cimd (for example --threads 8).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)" --target TovraProviders tovrasim tovra-cimd tovra-cim tovra-sim
users=${TOVRA_USERS:-build/serve-users}
if [ ! -e "$users" ]; then
  echo "admin:$(echo secret | build/host/server/tovra-cimd --hash-password):5" > "$users"
  echo "serve: made $users with the user admin, password secret" >&2
fi
cert=${TOVRA_CERT:-build/serve-cert.pem}
key=${TOVRA_KEY:-build/serve-key.pem}
if [ ! -e "$cert" ] || [ ! -e "$key" ]; then
  openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 365 \
    -subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1,DNS:localhost \
    -keyout "$key" -out "$cert" 2>/dev/null
  chmod 600 "$key"
  echo "serve: made the self-signed pair $cert, $key (clients: -cacert $cert, or -noverify)" >&2
fi
# The server finds the MOF, the registration and the providers from its build folder.
exec env LD_PRELOAD="$PWD/build/sim/libtovrasim.so" build/host/server/tovra-cimd --users "$users" \
  --port "${TOVRA_PORT:-5988}" --cert "$cert" --key "$key" --https-port "${TOVRA_HTTPS_PORT:-5989}" "$@"
