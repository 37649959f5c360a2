#!/usr/bin/env bash
# Runs scripts/check-macos (given as the argument) against the SDK folder in $KEYFERRY_MACOS_SDK; reports a
# skip (exit 77) when that variable is unset, as on CI, which has no copy of Apple's SDK.
set -euo pipefail
if [[ -z "${KEYFERRY_MACOS_SDK:-}" ]]; then
    echo "KEYFERRY_MACOS_SDK is not set: no SDK folder to compile the macOS code against, skipped."
    exit 77
fi
exec "$1" "$KEYFERRY_MACOS_SDK"
