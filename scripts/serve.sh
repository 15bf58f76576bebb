#!/usr/bin/env bash
# Builds the provider library and tovra-cimd, then serves CIM-XML over HTTP on
# loopback with the simulated adapter preloaded, until Ctrl-C or SIGTERM.
# Users come from $TOVRA_USERS (name:crypt-hash:level lines); without it a
# file with the one read-write user "admin", password "secret", is made in
# build/. The port is $TOVRA_PORT (default 5988); extra arguments go to
# tovra-cimd (for example --threads 8).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)" --target TovraProviders tovrasim tovra-cimd
users=${TOVRA_USERS:-build/serve-users}
if [ ! -e "$users" ]; then
  echo "admin:$(echo secret | build/host/server/tovra-cimd --hash-password):5" > "$users"
  echo "serve: made $users with the user admin, password secret" >&2
fi
exec env LD_PRELOAD="$PWD/build/sim/libtovrasim.so" build/host/server/tovra-cimd --mof mof \
  --registration mof/Tovra.reg --provider-dir build/src --users "$users" --port "${TOVRA_PORT:-5988}" "$@"
