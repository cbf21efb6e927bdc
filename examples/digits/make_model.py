#!/usr/bin/python3
"""Trains the digits model and packages it in the folder model/: digits.onnx with manifest.json, digits.dense, the same
network as the backend without an engine reads it, with dense.json, and samples.csv.

Run by hand; what it makes is committed. Needs Debian's python3-onnx and python3-sklearn.
"""

import csv
import json
import pathlib

import numpy
import onnx
import sklearn
from onnx import TensorProto, helper, numpy_helper
from sklearn.datasets import load_digits
from sklearn.model_selection import train_test_split
from sklearn.neural_network import MLPClassifier

PIXELS = 64
CLASSES = 10
BRIGHTEST = 16.0  # pixels are integers from 0 to 16


def train():
    """A network of one hidden layer, and the samples that it has not seen."""
    digits = load_digits()
    seen, unseen, seen_labels, unseen_labels = train_test_split(
        digits.data, digits.target, test_size=450, random_state=1, stratify=digits.target)
    classifier = MLPClassifier(hidden_layer_sizes=(64,), alpha=1.0, max_iter=2000, random_state=1)
    classifier.fit(seen / BRIGHTEST, seen_labels)
    return classifier, unseen, unseen_labels


def to_onnx(classifier):
    """The classifier with the scaling of its inputs, over rows of 64 pixels as they are in the data set."""
    (hidden_weights, output_weights), (hidden_bias, output_bias) = classifier.coefs_, classifier.intercepts_
    constants = {
        "hidden.weight": hidden_weights.T / BRIGHTEST,
        "hidden.bias": hidden_bias,
        "output.weight": output_weights.T,
        "output.bias": output_bias,
    }
    nodes = [
        helper.make_node("Gemm", ["pixels", "hidden.weight", "hidden.bias"], ["hidden"], transB=1),
        helper.make_node("Relu", ["hidden"], ["active"]),
        helper.make_node("Gemm", ["active", "output.weight", "output.bias"], ["scores"], transB=1),
        helper.make_node("Softmax", ["scores"], ["probabilities"], axis=1),
    ]
    graph = helper.make_graph(
        nodes, "digits",
        [helper.make_tensor_value_info("pixels", TensorProto.FLOAT, ["rows", PIXELS])],
        [helper.make_tensor_value_info("probabilities", TensorProto.FLOAT, ["rows", CLASSES])],
        [numpy_helper.from_array(values.astype(numpy.float32), name) for name, values in constants.items()])
    model = helper.make_model(graph, producer_name="make_model.py", opset_imports=[helper.make_opsetid("", 13)])
    model.ir_version = 7
    onnx.checker.check_model(model)
    return model


def to_dense(model):
    """The layers of that network one after the other: two counts, the weights of each output, the bias."""
    constants = {constant.name: numpy_helper.to_array(constant) for constant in model.graph.initializer}
    layers = b""
    for layer in ("hidden", "output"):
        weights = constants[layer + ".weight"]
        layers += numpy.array([weights.shape[1], weights.shape[0]], "<u4").tobytes()
        layers += weights.astype("<f4").tobytes() + constants[layer + ".bias"].astype("<f4").tobytes()
    return layers


def tensor(name, description, shape):
    return {"name": name, "description": description, "required": True, "featureType": "tensor",
            "tensor": {"shape": shape, "dataType": "float"}}


def manifest(network):
    return {
        "id": "digits",
        "name": "Handwritten digits",
        "author": "sdk-core",
        "description": "Tells which digit an image of 8 by 8 pixels shows",
        "sdkVersion": "5.4.0",
        "version": 1,
        "targets": {
            "WinML": {
                "components": [{"name": "digits", "path": network, "type": "file"}],
                "inputs": [tensor("pixels", "Rows of an 8 by 8 image, ink from 0 to 16", [1, PIXELS])],
                "outputs": [tensor("probabilities", "One for each digit from 0 to 9", [1, CLASSES])],
            }
        },
    }


def main():
    folder = pathlib.Path(__file__).parent / "model"
    classifier, images, labels = train()
    probabilities = classifier.predict_proba(images / BRIGHTEST)
    model = to_onnx(classifier)
    onnx.save(model, str(folder / "digits.onnx"))
    (folder / "digits.dense").write_bytes(to_dense(model))
    for name, network in ("manifest.json", "digits.onnx"), ("dense.json", "digits.dense"):
        (folder / name).write_text(json.dumps(manifest(network), indent=2) + "\n")
    with open(folder / "samples.csv", "w", newline="") as file:
        writer = csv.writer(file, lineterminator="\n")
        writer.writerow(["label"] + [f"pixel{i}" for i in range(PIXELS)] + [f"probability{i}" for i in range(CLASSES)])
        for image, label, row in zip(images, labels, probabilities):
            writer.writerow([label] + [int(pixel) for pixel in image] + [f"{value:.9g}" for value in row])
    print(f"scikit-learn {sklearn.__version__}: accuracy {classifier.score(images / BRIGHTEST, labels):.4f} "
          f"on {len(labels)} samples it has not seen")


if __name__ == "__main__":
    main()
