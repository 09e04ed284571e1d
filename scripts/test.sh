#!/usr/bin/env bash
# Sets up, builds (release) and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset release
cmake --build --preset release
ctest --preset release --output-on-failure
