"""Runs the blocks of Python in a document one after the other, as they stand on the page: run_blocks.py DOCUMENT DATA."""

import os
import pathlib
import re
import sys
import tempfile

document, data = (pathlib.Path(name).resolve() for name in sys.argv[1:3])
blocks = re.findall(r"^```python\n(.*?)^```$", document.read_text(), re.MULTILINE | re.DOTALL)
assert blocks, f"{document} has no block of Python"
with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    os.symlink(data, "data")
    names = {}
    for block in blocks:
        exec(compile(block, str(document), "exec"), names)
    names.clear()
    os.chdir("/")
print(f"{document.name}: {len(blocks)} blocks ran")
