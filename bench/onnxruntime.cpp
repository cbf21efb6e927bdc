// What the ONNX Runtime backend costs beside the engine's own work.

#include "../tests/support/onnx_writer.h"
#include "measure.h"
#include "onnxruntime_subjects.h"

#include <fstream>

namespace Bench {
namespace {

using namespace OnnxRuntimeSubjects;

void addCalls(const Subject& subject) {
    const auto ours = std::make_shared<Ours>(subject);
    const auto engine = std::make_shared<Engine>(subject);
    const std::string predict = "predict, " + subject.name + " over ONNX Runtime";
    const std::string evaluate = "evaluate, " + subject.name + " over ONNX Runtime";
    measure(predict, Side::Ours, [=] { benchmark::DoNotOptimize(ours->model->predict(ours->inputs, ours->outputs)); });
    measure(predict, Side::Limit, [=] { engine->run(); });
    measure(evaluate, Side::Ours, [=] { benchmark::DoNotOptimize(ours->model->evaluate(ours->binding)); });
    measure(evaluate, Side::Limit, [=] { engine->runBound(); });
}

// Each load with the release of what it made.
void addLoad(const Subject& subject) {
    const std::string name = "load, " + subject.name + " over ONNX Runtime";
    measure(name, Side::Ours, [=] {
        const auto model = load(subject);
        require(model->doUnload());
    });
    measure(name, Side::Limit, [=] { benchmark::DoNotOptimize(openSession(subject)); });
}

// Nodes of a network, one behind the other, each with further inputs.
class Chain {
 public:
    explicit Chain(std::string first) : value_(std::move(first)) {}

    /// @param attributes  as bytes of the file
    void add(const std::string& type, std::vector<std::string> further = {}, const std::string& attributes = "") {
        further.insert(further.begin(), value_);
        value_ = "value" + std::to_string(nodes_.size());
        nodes_.push_back(OnnxWriter::node(type, further, {value_}) + attributes);
    }
    void goOnFrom(std::string value) { value_ = std::move(value); }

    const std::string& value() const { return value_; }
    const std::vector<std::string>& nodes() const { return nodes_; }

 private:
    std::string value_;
    std::vector<std::string> nodes_;
};

// A network of some 6 MB as exporters write them: layers that are normalised and end in an activation, each in pieces
// that an engine puts together again, and weights the other way round.
Subject makeLayers(int layers, int64_t width) {
    using namespace OnnxWriter;
    const std::string lastAxis = message(5, message(1, "axes") + number(8, ~uint64_t{0}) + number(20, 7));
    std::vector<std::string> constants;
    const auto addNumber = [&](const std::string& name, float element) {
        constants.push_back(constant(name, {}, std::vector<float>{element}));
    };
    addNumber("two", 2);
    addNumber("tiny", 1e-5F);
    addNumber("one", 1);
    addNumber("half", 0.5F);
    addNumber("root", 1.4142135F);
    Chain chain("x");
    for (int layer = 0; layer < layers; ++layer) {
        const std::string weights = "weights" + std::to_string(layer);
        const std::string bias = "bias" + std::to_string(layer);
        std::vector<float> elements(static_cast<size_t>(width * width));
        for (size_t i = 0; i < elements.size(); ++i) elements[i] = static_cast<float>(i * 7 % 101) / 1000 - 0.05F;
        constants.push_back(constant(weights, {width, width}, elements));
        constants.push_back(constant(bias, {width}, std::vector<float>(static_cast<size_t>(width), 0.1F)));
        const std::string before = chain.value();
        chain.add("ReduceMean", {}, lastAxis);
        const std::string mean = chain.value();
        chain.goOnFrom(before);
        chain.add("Sub", {mean});
        const std::string centred = chain.value();
        chain.add("Pow", {"two"});
        chain.add("ReduceMean", {}, lastAxis);
        chain.add("Add", {"tiny"});
        chain.add("Sqrt");
        const std::string deviation = chain.value();
        chain.goOnFrom(centred);
        chain.add("Div", {deviation});
        chain.add("Mul", {bias});
        chain.add("Add", {bias});
        const std::string normal = chain.value();
        chain.goOnFrom(weights);
        chain.add("Transpose");
        const std::string turned = chain.value();
        chain.goOnFrom(normal);
        chain.add("MatMul", {turned});
        chain.add("Add", {bias});
        const std::string sum = chain.value();
        chain.add("Div", {"root"});
        chain.add("Erf");
        chain.add("Add", {"one"});
        chain.add("Mul", {sum});
        chain.add("Mul", {"half"});
        chain.add("Add", {before});
    }
    const std::filesystem::path file = scratchDirectory() / (std::to_string(layers) + "layers.onnx");
    std::ofstream(file, std::ios::binary) << network(chain.nodes(), {port("x", DataType::Float, {1, width})},
                                                     {port(chain.value(), DataType::Float, {1, width})}, constants);
    return {std::to_string(layers) + " layers of 6 MB",
            file.string(),
            {{"x", DataType::Float, {1, width}}},
            {{chain.value(), DataType::Float, {1, width}}}};
}

void addCachedLoad(const Subject& subject) {
    const std::string name = "load from the cache, " + subject.name;
    const std::string cache = (scratchDirectory() / "cache").string();
    require(load(subject, cache)->doUnload());  // writes it
    measure(name, Side::Ours, [=] {
        const auto model = load(subject, cache);
        require(model->doUnload());
    });
    measure(name, Side::Instead, [=] {
        const auto model = load(subject);
        require(model->doUnload());
    });
}

}  // namespace

void addOnnxRuntime() {
    for (const Subject& subject : {voice(), digits()}) addCalls(subject);
    for (const Subject& subject : {voice(), digits()}) addLoad(subject);
    for (const Subject& subject : {makeLayers(48, 176), makeLayers(6, 512)}) {
        addLoad(subject);
        addCachedLoad(subject);
    }
    addCachedLoad(voice());
}

}  // namespace Bench
