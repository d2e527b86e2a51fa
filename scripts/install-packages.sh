#!/usr/bin/env bash
# Installs what scripts/packages.txt names and the machine lacks, with KVO_BUILD_MPI=ON also what scripts/packages-mpi.txt names. Needs root or
# sudo only when something is missing.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)

lists=("$here/packages.txt")
[ "${KVO_BUILD_MPI:-}" != ON ] || lists+=("$here/packages-mpi.txt")
missing=()
while read -r package; do
    case $package in '' | '#'*) continue ;; esac
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
done < <(cat "${lists[@]}")
[ ${#missing[@]} -gt 0 ] || exit 0

sudo=
if [ "$(id -u)" != 0 ]; then
    command -v sudo >/dev/null || { echo "These packages are missing, and neither root nor sudo is at hand: ${missing[*]}" >&2; exit 1; }
    sudo=sudo
fi
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y --no-install-recommends "${missing[@]}"
