#!/usr/bin/env bash
# Builds the provider library and our CIM host, then loads the library into
# the host with the simulated adapter (the preload shim serves its built-in
# "default" scenario) and prints the inventory the providers serve. Only the
# report goes to standard output (so `scripts/run.sh --json | jq .` works);
# build progress goes to standard error.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh >&2
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >&2
cmake --build build -j "$(nproc)" --target TovraProviders tovrasim tovra-cim >&2
LD_PRELOAD="$PWD/build/sim/libtovrasim.so" \
  build/host/cli/tovra-cim --mof mof --registration mof/Tovra.reg --provider-dir build/src \
  --principal root --permission root=5 inventory "$@"
