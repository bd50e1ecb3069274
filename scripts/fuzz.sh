#!/usr/bin/env bash
# scripts/fuzz.sh MINUTES [PARSER...]: fuzzes every parser for that long, or those named.
set -euo pipefail
. "$(dirname "$0")/lib/setup.sh"
. "$(dirname "$0")/lib/fuzz.sh"

case ${1:-} in
'' | *[!0-9]*) fail "usage: scripts/fuzz.sh MINUTES [PARSER...]" ;;
esac
minutes=$1
shift
need_packages build test check
fuzz_all $((minutes * 60)) "$@"
