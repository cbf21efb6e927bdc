#pragma once

#include <TarnoMirelo/TarnoMirelo.h>
#include <TarnoMirelo/onnxruntime.h>

#include <memory>
#include <onnxruntime_cxx_api.h>
#include <stdexcept>
#include <string>
#include <vector>

/// Networks that run through the backend, and through its engine by itself. Both sides have one thread, read the
/// caller's inputs and write into the caller's outputs.
namespace Bench::OnnxRuntimeSubjects {

using namespace TarnoMirelo;

struct Port {
    std::string name;
    DataType type;
    TensorShape shape;
};

struct Subject {
    std::string name;
    std::string file;
    std::vector<Port> inputs;
    std::vector<Port> outputs;
};

inline Subject digits() {
    return {"digits",
            DIGITS_MODEL "/digits.onnx",
            {{"pixels", DataType::Float, {1, 64}}},
            {{"probabilities", DataType::Float, {1, 10}}}};
}

inline Subject voice() {
    return {
        "voice",
        VOICE_NETWORK,
        {{"input", DataType::Float, {1, 576}}, {"state", DataType::Float, {2, 1, 128}}, {"sr", DataType::Int64, {}}},
        {{"output", DataType::Float, {1, 1}}, {"stateN", DataType::Float, {2, 1, 128}}}};
}

inline void require(const MireloStatus& status) {
    if (!status.ok()) throw std::runtime_error(status.getDescription());
}

inline std::vector<ModelFeatureDescriptor> descriptorsOf(const std::vector<Port>& ports) {
    std::vector<ModelFeatureDescriptor> descriptors;
    for (const Port& port : ports) {
        descriptors.push_back(
            {MireloFeatureType::Tensor, true, port.name, "", TensorDescriptor(port.shape, port.type)});
    }
    return descriptors;
}

/// @param cacheDirectory  empty: no cache
/// @param copies          as of the options
inline std::shared_ptr<OnnxRuntime::Model> load(const Subject& subject, const std::string& cacheDirectory = "",
                                                int copies = 1) {
    OnnxRuntime::Options options;
    options.threadsWithinNodes = 1;
    options.copies = copies;
    options.cacheDirectory = Filepath(cacheDirectory);
    auto model = std::make_shared<OnnxRuntime::Model>(subject.name, MireloModelType::WinML, MireloConfig(), options);
    const size_t end = subject.file.rfind('/');
    const ModelComponent network{"network", subject.file.substr(end + 1), Encryption(), ComponentKind::File, {}};
    const ModelTarget target{MireloModelType::WinML,        {network}, {}, {}, descriptorsOf(subject.inputs),
                             descriptorsOf(subject.outputs)};
    require(model->load({MireloModelType::WinML, target, Filepath(subject.file.substr(0, end))}));
    return model;
}

inline MireloModel::Outputs makeFeatures(const std::vector<Port>& ports) {
    MireloModel::Outputs features;
    for (const ModelFeatureDescriptor& descriptor : descriptorsOf(ports)) {
        features.push_back(std::make_shared<MireloFeatureTensor>(descriptor));
    }
    return features;
}

/// Something to compute with: the first input counts up, further ones are zero, and integers the rate of samples.
inline void fill(const MireloModel::Outputs& features) {
    ITensor& first = *features.front()->asTensor();
    auto* const elements = reinterpret_cast<float*>(first.buffer());
    for (int64_t i = 0; i < first.shape().size(); ++i) elements[i] = static_cast<float>(i % 17) / 17;
    for (const auto& feature : features) {
        ITensor& tensor = *feature->asTensor();
        if (tensor.dataType() == DataType::Int64) *reinterpret_cast<int64_t*>(tensor.buffer()) = 16000;
    }
}

/// A loaded model with what goes in and out of it.
struct Ours {
    explicit Ours(const Subject& subject) : Ours(load(subject), subject) {}
    Ours(std::shared_ptr<OnnxRuntime::Model> loaded, const Subject& subject) : model(std::move(loaded)) {
        const MireloModel::Outputs filled = makeFeatures(subject.inputs);
        fill(filled);
        inputs.assign(filled.begin(), filled.end());
        require(model->predict(inputs, outputs));
        MireloModel::Outputs bound;
        require(model->bind(inputs, bound, binding));
    }

    std::shared_ptr<OnnxRuntime::Model> model;
    MireloModel::Inputs inputs;
    MireloModel::Outputs outputs;
    std::shared_ptr<MireloModel::MireloBinding> binding;
};

inline Ort::Session openSession(const Subject& subject) {
    static const Ort::Env environment(ORT_LOGGING_LEVEL_ERROR, "bench");
    Ort::SessionOptions options;
    options.SetIntraOpNumThreads(1);
    return {environment, subject.file.c_str(), options};
}

/// The engine by itself.
struct Engine {
    explicit Engine(const Subject& of) : Engine(std::make_shared<Ort::Session>(openSession(of)), of) {}
    Engine(std::shared_ptr<Ort::Session> opened, Subject of)
        : subject(std::move(of)),
          session(std::move(opened)),
          inputFeatures(makeFeatures(subject.inputs)),
          outputFeatures(makeFeatures(subject.outputs)),
          binding(*session) {
        fill(inputFeatures);
        for (size_t i = 0; i < inputFeatures.size(); ++i) {
            inputNames.push_back(subject.inputs[i].name.c_str());
            inputs.push_back(wrap(*inputFeatures[i]->asTensor()));
            binding.BindInput(inputNames.back(), inputs.back());
        }
        for (size_t i = 0; i < outputFeatures.size(); ++i) {
            outputNames.push_back(subject.outputs[i].name.c_str());
            outputs.push_back(wrap(*outputFeatures[i]->asTensor()));
            binding.BindOutput(outputNames.back(), outputs.back());
        }
    }

    void run() {
        session->Run(runOptions, inputNames.data(), inputs.data(), inputs.size(), outputNames.data(), outputs.data(),
                     outputs.size());
    }
    void runBound() { session->Run(runOptions, binding); }

    static Ort::Value wrap(ITensor& tensor) {
        const std::vector<int64_t> shape = tensor.shape().shapeVector();
        const auto type = tensor.dataType() == DataType::Int64 ? ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64
                                                               : ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT;
        return Ort::Value::CreateTensor(Ort::MemoryInfo::CreateCpu(OrtArenaAllocator, OrtMemTypeDefault),
                                        tensor.buffer(), static_cast<size_t>(tensor.bytes()), shape.data(),
                                        shape.size(), type);
    }

    Subject subject;
    std::shared_ptr<Ort::Session> session;
    Ort::RunOptions runOptions;
    MireloModel::Outputs inputFeatures;
    MireloModel::Outputs outputFeatures;
    std::vector<const char*> inputNames;
    std::vector<const char*> outputNames;
    std::vector<Ort::Value> inputs;
    std::vector<Ort::Value> outputs;
    Ort::IoBinding binding;
};

}  // namespace Bench::OnnxRuntimeSubjects
