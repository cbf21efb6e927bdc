#pragma once

#include <TarnoMirelo/model.h>

#include <cstdint>
#include <string>
#include <vector>

namespace TarnoMirelo::Conformance {

/// An input or output of a case.
struct Value {
    std::string name;
    DataType type = DataType::Undefined;
    TensorShape shape;
    std::vector<uint8_t> bytes;  // of the elements, dense

    size_t size() const { return static_cast<size_t>(shape.size()); }
};

/// Inputs, and the outputs that they give.
struct Case {
    std::string name;
    std::vector<Value> inputs;
    std::vector<Value> outputs;  // in the target's order
};

struct Package {
    std::string name;
    MireloModel::Components components;
    bool rowsAreIndependent = false;
    std::vector<Case> cases;

    const ModelTarget& target() const { return std::get<ModelTarget>(components); }
    std::string folder() const { return std::get<Filepath>(components).getPathString(); }
    /// The first of the cases that give the most inputs.
    const Case& fullCase() const;
    /// The cases that can be rows of one batch: those with the same inputs as the full case, which is the first of
    /// them.
    std::vector<Case> rows() const;
};

/// The package in that folder. Raises `std::runtime_error`, which says what is wrong with it.
Package readPackage(const std::string& folder, const std::string& name, MireloModelType type);

/// The bytes that an element of the type takes; 0 for `Undefined`.
size_t widthOf(DataType type);
bool isInteger(DataType type);
/// An element as a number, and the reverse.
double readElement(DataType type, const uint8_t* from);
void writeElement(DataType type, double number, uint8_t* to);

}  // namespace TarnoMirelo::Conformance
