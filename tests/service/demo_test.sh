#!/bin/sh
# usage: demo_test.sh DEMO_RUN BIN_DIR
# The demonstration succeeds with the real service, and fails with one that does nothing.
set -eu

# The demonstration waits for a minute to begin. In a zone whose offset has seconds one begins whenever it is wanted:
# here in four.
offset=$(((56 - $(date +%s) % 60 + 60) % 60))
TZ="AAA-0:00:$offset" "$1" "$2"

idle=$(mktemp -d)
trap 'rm -rf "$idle"' EXIT
ln -s /bin/true "$idle/vukocrond"
if "$1" "$idle"; then
    echo "the demonstration succeeded without a service" >&2
    exit 1
fi
