#!/usr/bin/env bash
# Runs lintian on the Debian packages that `make package` made: any error fails; the warnings
# that README.md lists as accepted are printed like every other tag.
#
#   scripts/package-lint.sh [PACKAGE_DIR]     (default: build/release/packages)
set -euo pipefail
cd "$(dirname "$0")/.."
packages_dir=${1:-build/release/packages}
if ! command -v lintian >/dev/null; then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq lintian >/dev/null
fi
lintian --fail-on error --tag-display-limit 0 "$packages_dir"/*.deb
echo "package-lint: no lintian error"
