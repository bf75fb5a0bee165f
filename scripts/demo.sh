#!/usr/bin/env bash
# Builds the release configuration and runs the command-line host's demo.
#
#   bash scripts/demo.sh [extra arguments for "quorvel demo"]
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

bash scripts/setup.sh
cmake --preset linux-release
cmake --build --preset linux-release -j2
exec build/linux-release/tools/quorvel demo "$@"
