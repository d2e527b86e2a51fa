#!/usr/bin/env python3
"""Writes the seeds of a fuzzer: make_seeds.py FUZZER FOLDER. Small sound files of every kind, in every format."""
import gzip
import io
import os
import struct
import sys
import zipfile

RECORDS, CHUNKS, TEXT_BINARY, TEXT, HALF_CHUNKS, DENSE = range(6)


def ints(*values):
    return struct.pack("<%di" % len(values), *values)


def doubles(*values):
    return struct.pack("<%dd" % len(values), *values)


def record(items, longest=10**9):
    parts = [items[k : k + longest] for k in range(0, len(items), longest)] or [b""]
    text = b""
    for k, part in enumerate(parts):
        head = -len(part) if k + 1 < len(parts) else len(part)
        text += ints(head) + part + ints(-len(part) if k > 0 else len(part))
    return text


def records(longest=10**9):
    rows = [([1, 2, 3], [4.0, 7.0, -1.5]), ([2], [5.0]), ([3, 1], [6.0, 0.5])]
    text = record(ints(len(rows)))
    for columns, values in rows:
        text += record(ints(len(columns), *columns) + doubles(*values), longest)
    return text


def chunks(bits, full, items=5, n=4, padded=True):
    length = 1 << bits
    count = (items - 1) // length + 1 if items else 1
    start = [min(items, 2 * i) for i in range(n)] + [items]
    text = ints(n, items, count, full, bits, 1) + ints(*start) + doubles(*[float(i + 1) for i in range(n)])
    columns = [(k + 1) % n for k in range(items)]
    values = [0.5 * k - 1 for k in range(items)]
    if not padded:
        return text + ints(*columns)
    columns += [0] * (count * length - items)
    values += [0.0] * (count * length - items)
    for k in range(0, count * length, length):
        text += ints(*columns[k : k + length]) + doubles(*values[k : k + length])
    return text


IMPORTS = {
    "records": (RECORDS, 0, records()),
    "records-split": (RECORDS, 0, records(7)),
    "records-empty": (RECORDS, 0, record(ints(0))),
    "chunks-half": (CHUNKS, 0, chunks(1, 0)),
    "chunks-full": (CHUNKS, 0, chunks(2, 1)),
    "chunks-single": (CHUNKS, 0, chunks(0, 0)),
    "chunks-empty": (CHUNKS, 0, chunks(3, 1, items=0)),
    "chunks-long": (CHUNKS, 3, chunks(13, 1, padded=False)),
    "half-chunks": (HALF_CHUNKS, 25, chunks(17, 0, padded=False)),
    "half-chunks-empty": (HALF_CHUNKS, 24, chunks(17, 0, items=0, padded=False)),
    "half-chunks-exact": (HALF_CHUNKS, 40, ints(1, 131072, 1, 0, 17, 1) + ints(0, 131072) + doubles(2.0)),
    "half-chunks-two": (HALF_CHUNKS, 56, ints(1, 131073, 2, 0, 17, 1) + ints(0, 131073) + doubles(2.0)),
    "dense": (DENSE, 0, ints(3, 2, 3, 2) + doubles(1, 0, -2, 1e-17, 2e-16, 3)),
    "dense-zeros": (DENSE, 3, ints(150, 160, 150, 160) + doubles(1, 2, 3)),
    "dense-empty": (DENSE, 0, ints(5, 0, 5, 0)),
    "text": (TEXT, 0, b"1 1 2.0\n1 1 3.0\n3 2 1.0\n"),
    "text-empty": (TEXT, 0, b""),
    "text-layout": (TEXT_BINARY, 0, b"\r\n +1\t002 -.5e+3 4\v1\f1E-7"),
    "text-rare": (TEXT_BINARY, 0, b"1 1 inf 1 2 -nan 1 3 0x1.8p-3 1 4 1e400 2 1 4e-324 2 2 -INFINITY 2 3 1e-400"),
    "text-long": (TEXT, 0, b"2 1 0.1234567890123456789012345678901234567890e-5 0000000000000000012 7 1." + b"0" * 200),
    "text-export": (TEXT, 0, b"1 1 4.000000000000000e+00\n2 2 5.000000000000000e+00\n1 2 7.000000000000000e+00\n"),
}

MARKET = {
    "coordinate": b"\x01% a comment\n3 2 3\n1 1 2.5\n3 2 -1e-3\n3 2 1\n",
    "coordinate-symmetric": b"\x033 3 2\n1 1 2\n3 1 -1\n",
    "array": b"\x022 2\n1\n0\n0\n-4\n",
    "array-symmetric": b"\x062 2\n1\n2\n3\n",
    "banner": b"\x08%MatrixMarket matrix coordinate integer general\n1 1 1\n\n1 1 7\n",
}

BOEING, ARRAY, ARCHIVE, ANY = range(4)


def boeing(kind, values, formats="(1P,3D13.5)", rhs=b""):
    """Entries (1, 1), (3, 1), (2, 2), (3, 3) of a matrix of order 3."""
    counts = b"".join(b"%14d" % n for n in (5 + bool(rhs), 1, 1, int(bool(values)), int(bool(rhs))))
    head = b"title".ljust(72) + b"key".ljust(8) + b"\n" + counts + b"\n" + kind.encode().ljust(14) + b"%14d%14d%14d%14d\n" % (3, 3, 4, 0)
    head += b"(16I5)".ljust(16) * 2 + formats.encode().ljust(20) + b"(5E16.8)\n" + (b"F 1 0\n" if rhs else b"")
    return head + b"    1    3    4    5\n    1    3    2    3\n" + values + rhs


def array(kind, shape, content, fortran=False):
    head = ("{'descr': '%s', 'fortran_order': %s, 'shape': %s, }" % (kind, fortran, shape)).ljust(53).encode() + b"\n"
    return b"\x93NUMPY\x01\x00" + struct.pack("<H", len(head)) + head + content


def archive(layout, packed=zipfile.ZIP_STORED, **members):
    text = io.BytesIO()
    with zipfile.ZipFile(text, "w", packed) as file:
        file.writestr("format.npy", array("|S3", "()", layout))
        file.writestr("shape.npy", array("<i4", "(2,)", ints(2, 2)))
        for name, content in members.items():
            file.writestr(name + ".npy", content)
    return text.getvalue()


LIST = array("<f8", "(2,)", doubles(1, -2))
ROWS = {"data": LIST, "indices": array("<i4", "(2,)", ints(1, 0)), "indptr": array("<i4", "(3,)", ints(0, 1, 2))}
FILES = {
    "boeing": (BOEING, boeing("RUA", b"  1.00000D+00 -2.50000D-03  3.00000+101\n  4.00000D+00\n")),
    "boeing-symmetric": (BOEING, boeing("rsa", b" 1. 2. 3. 4.\n", "(4F3.0)")),
    "boeing-pattern": (BOEING, boeing("PZA", b"")),
    "boeing-rhs": (BOEING, boeing("RUA", b"   1   2   3   4\n", "(4I4)", b"1 2 3\n")),
    "boeing-complex": (BOEING + 4, boeing("CHA", b"1.2.3.4.5.6.7.8.\n", "(8F2.0)")),
    "array": (ARRAY, array("<f8", "(2, 2)", doubles(1, 0, 2, -3), True)),
    "array-of-bytes": (ARRAY, array("|u1", "(3,)", b"\x00\x01\x02")),
    "array-complex": (ARRAY + 8, array(">c8", "(1, 2)", bytes(range(16)))),
    "rows": (ARCHIVE, archive(b"csr", **ROWS)),
    "columns": (ARCHIVE, archive(b"csc", zipfile.ZIP_DEFLATED, **ROWS)),
    "coordinates": (ARCHIVE, archive(b"coo", data=LIST, row=ROWS["indices"], col=ROWS["indices"])),
    "blocks": (ARCHIVE, archive(b"bsr", data=array("<f4", "(1, 2, 1)", bytes(8)), indices=array("<i4", "(1,)", ints(1)), indptr=array("<i4", "(2,)", ints(0, 1)))),
    "diagonals": (ARCHIVE, archive(b"dia", data=array("<f8", "(1, 2)", doubles(1, 2)), offsets=array("<i8", "(1,)", bytes(8)))),
    "packed": (ANY, gzip.compress(boeing("RSA", b" 1. 2. 3. 4.\n", "(4F3.0)"))),
    "triplets": (ANY, b"1 2 3D0\n"),
}

# Nothing, a bit, and a sector of the database and of the journal.
DATABASE = {
    "sound": b"\x00",
    "left": b"\x01",
    "bit": bytes([0, 0, 4, 1, 3]),
    "journal": bytes([1, 40, 0x80, 1, 3]),
    "cut": bytes([1, 0, 0x40, 6, 0]),
}

SEEDS = {
    "sparse_import_fuzz": {name: bytes([kind, zeros]) + content for name, (kind, zeros, content) in IMPORTS.items()},
    "matrix_market_fuzz": MARKET,
    "matrix_file_fuzz": {name: bytes([kind]) + content for name, (kind, content) in FILES.items()},
    "database_fuzz": DATABASE,
}

fuzzer, folder = sys.argv[1:]
os.makedirs(folder, exist_ok=True)
for name, content in SEEDS[fuzzer].items():
    with open(os.path.join(folder, name), "wb") as seed:
        seed.write(content)
