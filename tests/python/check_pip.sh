#!/usr/bin/env bash
# usage: check_pip.sh PYTHON SOURCE BUILD_DIR. Installs the package into a virtual environment and uses it there, without PYTHONPATH.
set -euo pipefail
python=$1 source=$2 build=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$python" -m venv --system-site-packages --without-pip "$work/venv"
# Of nobody's settings, cache or home, nor of what another run leaves in the folder of temporary files.
export HOME="$work" TMPDIR="$work" PYTHONDONTWRITEBYTECODE=1
"$python" -m pip --isolated --disable-pip-version-check --log "$work/log" --python "$work/venv/bin/python" \
    install --quiet --no-index --no-deps --no-cache-dir "$source" --config-settings=build-dir="$build" || { tail -n 100 "$work/log"; exit 1; }
cd "$work"
"$work/venv/bin/python" -c "
import kvo, sys
assert kvo.__file__.startswith(sys.prefix), kvo.__file__
k, m = (kvo.read('$source/data/' + name) for name in ('bcsstk01.mtx', 'bcsstm01.mtx'))
assert kvo.modes(k, m, 3).frequencies[0] > 0
assert open('/proc/self/maps').read().count('$work/venv') > 3 # the libraries of the wheel, no others"
