#!/bin/sh
# The version the packaging uses: the nearest tag (without a leading v),
# or 0.0+g<commit> before the first tag, or 0.0 outside a git checkout.
cd "$(dirname "$0")/.."
v=$(git describe --tags 2>/dev/null) && { echo "${v#v}"; exit 0; }
c=$(git rev-parse --short HEAD 2>/dev/null) && { echo "0.0+g$c"; exit 0; }
echo 0.0
