#pragma once

#include <TarnoMirelo/model.h>
#include <TarnoMirelo/operators.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// An engine to run the model on. Each backend has a class of its own that operators derive from.
struct Engine {
    const char* name;
    std::function<std::shared_ptr<TarnoMirelo::MireloModel>(const std::string& modelName)> makeModel;
    TarnoMirelo::CustomOperators::OperatorFactory makeOperator;
};

Engine openCv();
Engine onnxRuntime();

/// What the operator does, on any engine: scales each row to the length 1.
TarnoMirelo::MireloStatus unitLength(const std::vector<std::shared_ptr<const TarnoMirelo::ITensor>>& inputs,
                                     const std::vector<std::shared_ptr<TarnoMirelo::ITensor>>& outputs);
