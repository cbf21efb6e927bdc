"""Writes NumPy array files for the transcripts: make_npy.py <file> <dtype> <shape> <struct format> <number...>"""

import struct
import sys

path, dtype, shape, form, *numbers = sys.argv[1:]
order = "True" if path.startswith("fortran") else "False"
version = 2 if path.startswith("v2") else 3 if path.startswith("v3") else 1
header = f"{{'descr': '{dtype}', 'fortran_order': {order}, 'shape': {shape}, }}\n".encode()
length = struct.pack("<H" if version == 1 else "<I", len(header))
elements = struct.pack(form, *(float(number) if "." in number else int(number) for number in numbers))
with open(path, "wb") as file:
    file.write(b"\x93NUMPY" + bytes([version, 0]) + length + header + elements)
