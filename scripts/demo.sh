#!/usr/bin/env bash
# Installs what is missing, builds the release library and the tool, and shows the main job end to
# end on this machine: an update check against a loopback update server, and the download of what
# it offers.
set -euo pipefail
. "$(dirname "$0")/lib/setup.sh"

need_packages build
build_preset release
exec build/release/qormon demo
