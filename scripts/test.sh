#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test, real servers included.
set -euo pipefail
. "$(dirname "$0")/lib/setup.sh"

need_packages build test
build_preset debug
run_tests debug
