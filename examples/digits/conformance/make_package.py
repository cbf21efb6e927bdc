#!/usr/bin/python3
"""Makes a small package of layers, by which the suite for backends tries this one. Run by hand; needs python3-numpy."""

import json
import pathlib

import numpy as np

FOLDER = pathlib.Path(__file__).parent / "two_layers"
LAYERS = [(np.array([[1, -1], [0.5, 2], [-1, 1]], np.float32), np.array([0, 1, -0.5], np.float32)),
          (np.array([[1, 0, 2], [-1, 1, 0]], np.float32), np.array([0.25, 0], np.float32))]


def compute(x):
    for number, (weights, bias) in enumerate(LAYERS):
        x = weights @ (x if number == 0 else np.maximum(x, 0)) + bias
    powers = np.exp(x - x.max())
    return powers / powers.sum()


def port(name, size):
    return {"name": name, "featureType": "tensor", "tensor": {"shape": [1, size], "dataType": "float"}}


def line(kind, name, values):
    return f"{kind} {name} float [1,{len(values)}] " + " ".join(repr(float(value)) for value in values) + "\n"


layers = b"".join(np.uint32(weights.shape[::-1]).tobytes() + weights.tobytes() + bias.tobytes()
                  for weights, bias in LAYERS)
(FOLDER / "layers.dense").write_bytes(layers)
target = {"components": [{"name": "classifier", "path": "layers.dense", "type": "file"}],
          "inputs": [port("point", 2)], "outputs": [port("chances", 2)]}
manifest = {"name": "two layers", "version": 1, "targets": {"WinML": target}}
(FOLDER / "manifest.json").write_text(json.dumps(manifest, indent=1) + "\n")
text = "rows independent\n"
for name, point in [("first", [1, 2]), ("second", [-0.5, 0.25])]:
    text += f"case {name}\n" + line("input", "point", point) + line("output", "chances", compute(np.float32(point)))
(FOLDER / "expected.txt").write_text(text)
