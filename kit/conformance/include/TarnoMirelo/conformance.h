#pragma once

/// @file
/// The suite that every backend passes: GoogleTest tests of the contract of a backend, one for each row of its table.
///
/// An author describes the backend once, in a source file of a test program:
///
///     Conformance::Backend describe() {
///         Conformance::Backend backend;
///         backend.makeModel = [](const std::string& name, const std::shared_ptr<Device>& device) {
///             return std::make_shared<MyModel>(name, device);
///         };
///         backend.packages = {"identity", "sum"};
///         return backend;
///     }
///     MIRELO_CONFORMANCE(MyBackend, describe)
///
/// The program links `TarnoMirelo::conformance` and `GTest::gtest_main`, and has a test `MyBackend.<row>` for each row.
/// A row that can't be tried, since the description says that the backend doesn't do such a thing or no package is of
/// that kind, is reported as skipped, with the reason.

#include <TarnoMirelo/model.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace TarnoMirelo::Conformance {

/// Makes a new model, which is not loaded. Called often, and from several threads at once.
using MakeModel =
    std::function<std::shared_ptr<MireloModel>(const std::string& name, const std::shared_ptr<Device>& device)>;

/// The folder of the packages that come with the suite, which are ONNX networks: "identity", "sum" (two inputs),
/// "two_outputs", "variable_shape", "int64", "lstm", "optional_input" and "gemm".
std::string suppliedPackages();

/// What the suite is to know of a backend.
///
/// A package is a folder with "manifest.json", the components that it names, and "expected.txt": inputs and the results
/// that they give.
///
///     rows independent            # optional: the first dimension counts rows that don't depend on each other
///     case positive               # a prediction; at least one
///     input a float [1,2] 1 2     # name, element type as in a manifest, shape, elements
///     output y float [1,2] 3 4    # all outputs of the target; an input that is not required may be left out
///
/// Floats may also be "inf", "-inf" and "nan". Wrong inputs and outputs are tried on all packages whose targets
/// differ, in the first case with the most inputs. Other failures are tried on the first package that has fixed shapes,
/// and inputs and outputs of floats. There is at least one of those.
struct Backend {
    /// Required.
    MakeModel makeModel;
    /// Makes a model with the host's promise that the rows of a batch don't depend on each other. Empty for a backend
    /// that never runs several rows of a batch in one pass.
    MakeModel makeStackingModel;
    /// Of the devices that models are made with. A manifest's target of that type is used, or else the one of "WinML".
    MireloModelType modelType = MireloModelType::WinML;

    /// Where the packages are.
    std::string packageFolder = suppliedPackages();
    /// Each package that the backend can run: all of them are tried, and no others. At least one.
    std::vector<std::string> packages;
    /// The kinds of component that a network may come as: of "file" and "memory_stream", at least one.
    std::vector<std::string> componentKinds = {ComponentKind::File, ComponentKind::MemoryStream};
    /// The element types that an input takes which the manifest declares as `Float`. More than that one where the
    /// backend converts elements.
    std::vector<DataType> floatInputTypes = {DataType::Float};

    /// Whether `bind` and `evaluate` are implemented.
    bool binds = true;
    /// Whether `setBatchSize` is implemented.
    bool setsBatchSize = true;
    /// Whether `predict`, `predictBatch`, `bind` and `evaluate` of one model may overlap, apart from two `evaluate` of
    /// one binding. Distinct models may be used at once by different threads in every backend.
    bool mayOverlap = false;

    /// How far a result may be from the expected one: for an expected element e, tolerance * max(1, |e|). Integers are
    /// equal. Infinities are close only to themselves, and so is a NaN.
    double tolerance = 1e-5;
};

class Trial;

/// A row of the contract: what a backend does in one situation.
struct Row {
    const char* name;       ///< of its test
    const char* situation;  ///< what a host does
    STATUS_CODE status;     ///< what the operation answers
    const char*
        wanted;  ///< what holds besides; a refusal always has a description, and leaves the outputs as they were
    /// Brings the situation about and checks what the backend does; reports through GoogleTest.
    void (*check)(Trial& trial);
};

/// Rows that belong together.
struct Family {
    const char* name;       ///< such as "Loading"
    std::vector<Row> rows;  ///< in the order of docs/contract.md
};

/// The whole contract. docs/contract.md shows it.
const std::vector<Family>& contract();

/// For `MIRELO_CONFORMANCE`.
bool registerRows(const char* name, Backend (*describe)(), const char* file, int line) noexcept;

}  // namespace TarnoMirelo::Conformance

/// Adds the tests of a backend to the program, once in a source file, outside of functions.
/// @param name      of the test suite: letters and digits
/// @param describe  a function without arguments that returns the `Backend`; called in each test
#define MIRELO_CONFORMANCE(name, describe) \
    static const bool name##IsRegistered = ::TarnoMirelo::Conformance::registerRows(#name, describe, __FILE__, __LINE__)
