// What the OpenCV backend costs beside the engine's own work.

#include "measure.h"

#include <TarnoMirelo/TarnoMirelo.h>
#include <TarnoMirelo/opencv.h>

#include <opencv2/dnn.hpp>

#include <cstring>
#include <stdexcept>

namespace Bench {
namespace {

using namespace TarnoMirelo;

// A network, and what goes in and out of it for one row.
struct Subject {
    std::string name;
    std::string file;
    std::string input;
    std::string output;
    TensorShape inputShape;
    TensorShape outputShape;
};

const Subject kDigits{"digits", DIGITS_MODEL "/digits.onnx", "pixels", "probabilities", {1, 64}, {1, 10}};
const Subject kConvolutions{"convolutions", CONVOLUTIONS, "image", "relu1", {1, 3, 48, 48}, {1, 16, 48, 48}};

void require(const MireloStatus& status) {
    if (!status.ok()) throw std::runtime_error(status.getDescription());
}

ModelFeatureDescriptor port(const std::string& name, const TensorShape& shape) {
    return {MireloFeatureType::Tensor, true, name, "", TensorDescriptor(shape, DataType::Float)};
}

std::shared_ptr<OpenCv::Model> load(const Subject& subject, bool rowsAreIndependent) {
    OpenCv::Options options;
    options.rowsAreIndependent = rowsAreIndependent;
    auto model = std::make_shared<OpenCv::Model>(subject.name, MireloModelType::WinML, MireloConfig(), options);
    ModelComponent network{"network", "", Encryption(), ComponentKind::MemoryStream, {}};
    network.buffer = FileUtils().readBinaryFileToByteVector(Filepath(subject.file));
    const ModelTarget target{MireloModelType::WinML,
                             {network},
                             {},
                             {},
                             {port(subject.input, subject.inputShape)},
                             {port(subject.output, subject.outputShape)}};
    require(model->load({MireloModelType::WinML, target, Filepath()}));
    return model;
}

// Rows through the backend, and through its engine by itself: both read the caller's inputs, which lie one behind the
// other, and write the results into the caller's outputs.
struct Rows {
    Rows(const Subject& subject, int count, bool rowsAreIndependent)
        : model(load(subject, rowsAreIndependent)), outputName(subject.output) {
        const auto rowSize = static_cast<size_t>(subject.inputShape.size());
        elements.resize(rowSize * static_cast<size_t>(count));
        for (size_t i = 0; i < elements.size(); ++i) elements[i] = static_cast<float>(i % 17);
        for (size_t row = 0; row < static_cast<size_t>(count); ++row) {
            auto* const bytes = reinterpret_cast<uint8_t*>(elements.data() + row * rowSize);
            auto tensor = std::make_shared<BufferWrappedTensor>(DataType::Float, subject.inputShape, bytes,
                                                                rowSize * sizeof(float));
            inputs.push_back(std::make_shared<MireloFeatureTensor>(port(subject.input, subject.inputShape), tensor));
        }
        engine = cv::dnn::readNetFromONNX(subject.file);
        std::vector<int> shape;
        for (const int64_t size : subject.inputShape.shapeVector()) shape.push_back(static_cast<int>(size));
        shape.front() = count;
        engineInput = cv::Mat(static_cast<int>(shape.size()), shape.data(), CV_32F, elements.data());
        engineOutput.resize(static_cast<size_t>(subject.outputShape.size()) * static_cast<size_t>(count));
    }

    void runEngine() {
        engine.setInput(engineInput);
        const cv::Mat result = engine.forward(outputName);
        std::memcpy(engineOutput.data(), result.data, engineOutput.size() * sizeof(float));
        benchmark::ClobberMemory();
    }

    std::shared_ptr<OpenCv::Model> model;
    std::vector<float> elements;
    MireloModel::Inputs inputs;
    MireloModel::Outputs outputs;
    std::shared_ptr<MireloModel::MireloBinding> binding;
    cv::dnn::Net engine;
    cv::Mat engineInput;
    const std::string outputName;  // without one the engine lists all names in each call
    std::vector<float> engineOutput;
};

void addSingleRow(const Subject& subject) {
    const auto rows = std::make_shared<Rows>(subject, 1, false);
    require(rows->model->predict(rows->inputs, rows->outputs));
    require(rows->model->bind(rows->inputs, rows->outputs, rows->binding));
    const std::string predict = "predict, " + subject.name + " over OpenCV";
    const std::string evaluate = "evaluate, " + subject.name + " over OpenCV";
    measure(predict, Side::Ours, [=] { benchmark::DoNotOptimize(rows->model->predict(rows->inputs, rows->outputs)); });
    measure(predict, Side::Limit, [=] { rows->runEngine(); });
    measure(evaluate, Side::Ours, [=] { benchmark::DoNotOptimize(rows->model->evaluate(rows->binding)); });
    measure(evaluate, Side::Limit, [=] { rows->runEngine(); });
}

void addBatch(const Subject& subject, int count, bool rowsAreIndependent) {
    const auto rows = std::make_shared<Rows>(subject, count, rowsAreIndependent);
    require(rows->model->predictBatch(rows->inputs, rows->outputs));
    const std::string name = "predictBatch, " + subject.name +
                             (rowsAreIndependent ? " in one pass, " : " row by row, ") + std::to_string(count) +
                             (count == 1 ? " row" : " rows");
    measure(name, Side::Ours,
            [=] { benchmark::DoNotOptimize(rows->model->predictBatch(rows->inputs, rows->outputs)); });
    measure(name, Side::Limit, [=] { rows->runEngine(); });
}

}  // namespace

void addOpenCv() {
    // A pass is so short that the engine loses by sharing it out among threads, and how much differs from call to call
    // by more than what is measured here.
    cv::setNumThreads(1);
    addSingleRow(kDigits);
    addSingleRow(kConvolutions);
    for (const bool rowsAreIndependent : {true, false}) {
        for (const int count : {1, 16, 256}) addBatch(kDigits, count, rowsAreIndependent);
    }
}

}  // namespace Bench
