#!/usr/bin/env bash
# usage: install-packages.sh [build | python | mpi | all]...  Installs what scripts/packages-LIST.txt names and the machine lacks. Without
# a list, and by "all": those of build and python and what scripts/packages.txt names, with KVO_BUILD_MPI=ON also those of mpi. Says first
# how much that is. Needs root or sudo only when something is missing.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)

files=()
for list in "${@:-all}"; do
    if [ "$list" = all ]; then
        files+=("$here"/packages{-build,-python,}.txt)
        [ "${KVO_BUILD_MPI:-}" != ON ] || files+=("$here/packages-mpi.txt")
    else
        files+=("$here/packages-$list.txt")
    fi
done
missing=()
while read -r package; do
    case $package in '' | '#'*) continue ;; esac
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
done < <(cat "${files[@]}")
[ ${#missing[@]} -gt 0 ] || exit 0

sudo=
if [ "$(id -u)" != 0 ]; then
    command -v sudo >/dev/null || { echo "These packages are missing, and neither root nor sudo is at hand: ${missing[*]}" >&2; exit 1; }
    sudo=sudo
fi
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8
$sudo apt-get update -qq
install=(apt-get install --no-install-recommends "${missing[@]}")

# Apt's own count, before anything happens. A line of 5 MB/s and a disk of 20 MB/s are what the time is guessed by.
plan=$($sudo "${install[@]}" --assume-no) || true
count=$(sed -nE 's/.* ([0-9]+) newly installed.*/\1/p' <<<"$plan")
fetch=$(sed -nE 's/^Need to get ([0-9.,]+ k?M?G?B).*/\1/p' <<<"$plan")
disk=$(sed -nE 's/^After this operation, (.*) of additional.*/\1/p' <<<"$plan")
if [ -n "$count" ] && [ -n "$fetch" ] && [ -n "$disk" ]; then
    bytes() { tr -d ' ,B' <<<"${1^^}" | numfmt --from=si; }
    seconds=$(($(bytes "$fetch") / 5000000 + $(bytes "$disk") / 20000000))
    echo "Installing ${missing[*]}: with what they need $count packages, $fetch to fetch, $disk on disk; about $((seconds / 60 + 1)) min"
fi
$sudo "${install[@]}" -y -qq
