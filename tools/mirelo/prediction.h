#pragma once

#include "engines.h"
#include "package.h"

#include <TarnoMirelo/model.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace TarnoMirelo::Tool {

/// The target of a package that engines run. Raises `Failure` where it can't be run.
/// @param keyFile  of a protected package's key; empty: none
MireloModel::Components runnableTarget(const Package& package, const std::string& keyFile, ModelMetadata& metadata);

/// Says of which protected component the key is missing; empty where none is protected.
std::string missingKeyOf(const ModelTarget& target);

/// Values of inputs, by their names.
using NamedValues = std::map<std::string, std::string>;
/// Reads options of the form NAME=VALUE. Where there is more than one "=", the longest name of an input counts. Raises
/// `WrongUsage` for one without a name or a value, and for a name that comes twice; `Failure` for a name that is none
/// of the inputs'.
/// @param option  for the message
NamedValues parseNamedValues(const std::string& option, const std::vector<std::string>& values,
                             const std::vector<ModelFeatureDescriptor>& inputs);
/// "1,3,224" as dimensions; raises `WrongUsage`.
TensorShape parseShape(const std::string& option, const std::string& text);

/// How inputs that no file is given for are filled.
struct Filling {
    std::optional<uint64_t> seed;  ///< of random numbers; nothing for zeros
    NamedValues shapes;            ///< of inputs with dimensions that are -1; where there is none, those become 1
};

/// The inputs of a prediction: from NumPy files where one is named, and generated where there is a filling, of zeros,
/// or of random numbers that are the same on every system: floats from 0 to 1, integers from 0 to 9. Raises `Failure`
/// for a name that is none of the inputs', for an input that can't be made, and what reading raises.
/// @param missing  out: the required inputs that there is nothing for, as in "x, y"; empty: none
MireloModel::Inputs makeInputs(const ModelTarget& target, const NamedValues& files,
                               const std::optional<Filling>& filling, std::string& missing);

}  // namespace TarnoMirelo::Tool
