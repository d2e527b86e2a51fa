#!/usr/bin/env bash
# usage: check_other_readers.sh WRITER
# Writes a database, some of it with the lines of docs/database-format.md, and reads it back with those, with h5py and with h5dump.
set -euo pipefail
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
file=$folder/model.sim
python=
for candidate in python3 /usr/bin/python3; do
    if "$candidate" -c 'import h5py, scipy.sparse' 2>/dev/null; then
        python=$candidate
        break
    fi
done
if [ -z "$python" ]; then
    echo "no Python with h5py and scipy: install python3-h5py and python3-scipy" >&2
    exit 1
fi
here=$(cd "$(dirname "$0")" && pwd)
page=$here/../../../docs/database-format.md
cd "$folder"
"$1" "$file" places "'$python' '$here/read_sim_file.py' '$page' write"
"$python" "$here/read_sim_file.py" "$page"

h5repack "$file" repacked.sim
h5dump -a /displacements/rows repacked.sim | grep -qF '(0): 5' || { echo "h5repack: the title is lost" >&2; exit 1; }

dumped=$(h5dump -d /context_0/distribution_1_drawer_0 -w 0 "$file")
for line in '(0,0): 7.5, 7.5, 7.5, 7.5,' '(1,0): 7.5, 7.5, -2, 7.5,' '(2,0): 7.5, 7.5, 7.5, 7.5'; do
    grep -qF "$line" <<<"$dumped" || { printf 'h5dump does not show "%s":\n%s\n' "$line" "$dumped" >&2; exit 1; }
done
h5dump -d /context_0/distribution_3_drawer_0/column_indices "$file" | grep -qF '(0): 0, 1, 1' || { echo "h5dump: wrong column indices" >&2; exit 1; }
