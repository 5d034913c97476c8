#!/usr/bin/env bash
# Installs the Debian packages this project needs and the system lacks; does nothing when
# all are there. As root it calls apt-get itself, as another user through sudo.
#
#   scripts/prerequisites.sh             to build and test: g++ cmake ninja-build libgtest-dev
#   scripts/prerequisites.sh --ci        and valgrind, for the memory checks of .ci/run
#   scripts/prerequisites.sh --package   and dpkg-dev, file and lintian, to make and check the .deb
set -euo pipefail

packages=(g++ cmake ninja-build libgtest-dev)
for option in "$@"; do
    case "$option" in
        --ci) packages+=(valgrind) ;;
        --package) packages+=(dpkg-dev file lintian) ;;
        *) echo "usage: $0 [--ci] [--package]" >&2; exit 2 ;;
    esac
done

missing=()
for package in "${packages[@]}"; do
    status="$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)"
    [ "$status" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then
    as_root=()
elif command -v sudo > /dev/null; then
    as_root=(sudo)
else
    echo "$0: ${missing[*]} must be installed, which needs root or sudo" >&2
    exit 1
fi

echo "$0: installing ${missing[*]}"
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}"
