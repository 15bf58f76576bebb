#!/usr/bin/env bash
# Builds the provider library, the simulator and our CIM host's CLI, then runs
# `tovra-cim --simulate` with the arguments given: the library loaded into the
# host against the simulated adapter (its built-in "default" scenario, or
# TOVRA_SIM_SCENARIO). Without a command it prints the inventory (options alone,
# such as --json, go to it); `scripts/run.sh health` runs the monitoring check
# and exits with its state. Only the command's output goes to standard output
# (so `scripts/run.sh --json | jq .` works); build progress goes to standard error.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh >&2
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >&2
cmake --build build -j "$(nproc)" --target TovraProviders tovrasim tovra-cim >&2

commands=(classes inventory tree health ein ei gi an a rn r invoke)
command_given=false
for arg in "$@"; do
  for c in "${commands[@]}"; do [ "$arg" = "$c" ] && command_given=true; done
done
$command_given || set -- inventory "$@"
exec build/host/cli/tovra-cim --simulate "$@"
