#include "support/bare_classes.h"
#include "support/protection.h"
#include "support/tar_builder.h"
#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/TarnoMirelo.h>
#include <TarnoMirelo/opencv.h>

#include <gtest/gtest.h>

#include <thread>

namespace TarnoMirelo {
namespace {

using Floats = std::vector<float>;
using Inputs = MireloModel::Inputs;
using Outputs = MireloModel::Outputs;

ModelFeatureDescriptor port(const std::string& name, const TensorShape& shape, DataType type = DataType::Float) {
    return {MireloFeatureType::Tensor, true, name, "", TensorDescriptor(shape, type)};
}

/// A target of one network from the folder of test models.
ModelTarget targetOf(const std::string& network, const std::vector<ModelFeatureDescriptor>& inputs,
                     const std::vector<ModelFeatureDescriptor>& outputs) {
    return {MireloModelType::WinML, {{"net", network, Encryption(), ComponentKind::File, {}}}, {}, {}, inputs, outputs};
}

const ModelTarget kSumTarget = targetOf("sum.onnx", {port("a", {1, 3}), port("b", {1, 3})}, {port("y", {1, 3})});

std::string load(MireloModel& model, const ModelTarget& target) {
    return text(model.load({MireloModelType::WinML, target, Filepath(TEST_MODELS)}));
}

template <typename Element>
std::shared_ptr<MireloFeatureTensor> feature(const std::string& name, const TensorShape& shape,
                                             const std::vector<Element>& values, DataType type = DataType::Float) {
    auto tensor = std::make_shared<Tensor>(type, shape);
    const auto* const bytes = reinterpret_cast<const uint8_t*>(values.data());
    std::copy(bytes, bytes + values.size() * sizeof(Element), tensor->buffer());
    return std::make_shared<MireloFeatureTensor>(port(name, shape), std::move(tensor));
}

// Names, shapes and values, as in "y (1,3) 11 0 33;".
std::string text(const Outputs& outputs) {
    std::string all;
    for (const auto& output : outputs) {
        const ITensor& tensor = *output->asTensor();
        all += list(output->featureDescriptor().name(), tensor.shape());
        for (int64_t i = 0; i < tensor.shape().size(); ++i)
            all += list("", reinterpret_cast<const float*>(tensor.buffer())[i] + 0);  // -0 is 0
        all += ";";
    }
    return all;
}

class OpenCvBackend : public testing::Test {
 protected:
    OpenCvBackend() { EXPECT_EQ(load(*model, kSumTarget), kSuccess); }
    std::string predict(const Inputs& inputs) { return text(model->predict(inputs, outputs)); }
    std::string result(const std::string& status) { return status + text(outputs); }

    struct Sink : ILogProcessor {
        explicit Sink(std::string& kept) : written(kept) {}
        void Process(const LogEntry& entry) override {
            written += list(static_cast<int>(entry.severity), entry.message) + "\n";
            throw 1;  // which nobody suffers from
        }
        std::string& written;
    };
    static MireloConfig configOf(const std::shared_ptr<ILogProcessor>& sink) {
        MireloConfig config;
        config.SetLogger(sink);
        return config;
    }

    std::string log;
    MireloConfig config = configOf(std::make_shared<Sink>(log));
    std::shared_ptr<OpenCv::Model> model = std::make_shared<OpenCv::Model>("m", MireloModelType::WinML, config);
    std::shared_ptr<MireloFeature> a = feature("a", {1, 3}, Floats{1, 2, 3});
    std::shared_ptr<MireloFeature> b = feature("b", {1, 3}, Floats{10, -20, 30});
    Outputs outputs;
};

// The largest elements of each type, one after the other, and back: a result is never that of the input before.
TEST_F(OpenCvBackend, TakesTheElementTypesOfTheEngine) {
    const TensorShape shape(1, 3);
    const auto zero = feature("b", shape, Floats{0, 0, 0});
    size_t round = 0;
    for (const auto& taken :
         {feature<uint8_t>("a", shape, {1, 2, 255}, DataType::UInt8), feature("a", shape, Floats{2, 0, 255}),
          feature<int8_t>("a", shape, {3, 2, 127}, DataType::Int8),
          feature<uint16_t>("a", shape, {4, 2, 65535}, DataType::UInt16),
          feature<int16_t>("a", shape, {5, 2, 32767}, DataType::Int16),
          feature<int32_t>("a", shape, {6, 2, 65536}, DataType::Int32),
          feature<double>("a", shape, {7, 2.5, 1e6}, DataType::Double), feature("a", shape, Floats{8, 0, 0.5F}),
          feature<uint16_t>("a", shape, {0x4880, 0x4000, 0x4200}, DataType::Float16)}) {
        outputs.clear();
        const std::string expected[] = {"1 2 255",   "2 0 255",     "3 2 127", "4 2 65535", "5 2 32767",
                                        "6 2 65536", "7 2.5 1e+06", "8 0 0.5", "9 2 3"};
        EXPECT_EQ(result(predict({taken, zero})), "1: y (1,3) " + expected[round++] + ";");
    }
}

// Without the host's promise, a batch is as good as its rows by themselves, whatever the network does with its first
// dimension; with it, the rows go through in one pass where the engine can.
TEST_F(OpenCvBackend, StacksRowsOnlyWhereTheHostPromisesThatTheyAreIndependent) {
    struct Case {
        const char* network;
        TensorShape in, out;
        Floats first, second;
        const char *apart, *stacked;
    };
    const Case cases[] = {
        {"softmax.onnx", {1, 2}, {1, 2}, {1, 2}, {1, 2}, "1 1;1 1;", "0.5 0.5;0.5 0.5;"},
        {"one_row.onnx", {1, 4}, {1, 2, 2}, {1, 2, 3, 4}, {5, 6, 7, 8}, "1 2 3 4;5 6 7 8;", "1 2 3 4;5 6 7 8;"},
        {"lifted.onnx", {1, 1, 2}, {1, 1, 1, 2}, {1, 2}, {3, 4}, "2 4;6 8;", "2 4;6 8;"}};
    OpenCv::Options independent;
    independent.rowsAreIndependent = true;
    const auto stacking = std::make_shared<OpenCv::Model>("m", MireloModelType::WinML, config, independent);
    for (const Case& test : cases) {
        const Inputs rows = {feature("x", test.in, test.first), feature("x", test.in, test.second)};
        for (const auto& [tried, values] : {std::pair(model, test.apart), std::pair(stacking, test.stacked)}) {
            EXPECT_EQ(load(*tried, targetOf(test.network, {port("x", test.in)}, {port("y", test.out)})), kSuccess);
            Outputs results;
            EXPECT_EQ(text(tried->predictBatch(rows, results)), kSuccess);
            std::string found = text(results);
            for (const std::string name = list("y", test.out, ""); found.find(name) != std::string::npos;) {
                found.erase(found.find(name), name.size());
            }
            EXPECT_EQ(found, values) << test.network;
        }
    }
    EXPECT_EQ(text(stacking->setBatchSize(2)), "6: The model can't take 2 rows at once");
}

TEST_F(OpenCvBackend, SaysWhatTheEngineCannotDo) {
    load(*model, targetOf("any_sum.onnx", {port("a", {-1, -1}), port("b", {-1, -1})}, {port("y", {-1, -1})}));
    EXPECT_EQ(predict({feature("a", {1, 0}, Floats{}), b}), R"(17: Input "a": the engine can't take the shape (1, 0))");
    const std::string failure = R"(Node "ab" (Add): OpenCV)";
    EXPECT_EQ(predict({feature("a", {1, 4}, Floats{}), b}).substr(0, 4 + failure.size()), "13: " + failure);
    EXPECT_NE(log.find("\n3 OpenCV model \"m\": " + failure), std::string::npos);  // every one is reported
    EXPECT_TRUE(outputs.empty());
    load(*model, targetOf("list.onnx", {port("x", TensorShape(-1))}, {port("y", TensorShape(-1))}));
    EXPECT_EQ(result(predict({feature("x", TensorShape(3), Floats{1, -2, 3})})), "1: y (3) 1 0 3;");
    // What the manifest leaves open and the network does not.
    load(*model, targetOf("sum.onnx", {port("a", {-1, -1}), port("b", {-1, -1})}, {port("y", {-1, -1})}));
    EXPECT_EQ(predict({feature("a", {1, 2}, Floats(2)), b}),
              R"(17: Input "a": the shape is (1, 2), wanted is (-1, 3) with any number from 0 for -1)");
}

TEST_F(OpenCvBackend, SaysWhatItCannotLoadAndWhy) {
    const TempDir directory;
    for (const auto& [title, json, expected] : readCases(TEST_DATA "/opencv_targets.txt")) {
        ModelMetadata metadata;
        EXPECT_EQ(text(metadata.load(directory.write("m", json))), kSuccess);
        const ModelTarget target = std::get<ModelTarget>(metadata.getModelCompoents(MireloModelType::WinML));
        EXPECT_EQ(load(*model, target) + "\n", expected) << title;
    }
}

TEST_F(OpenCvBackend, ReadsNetworksFromMemoryAndRefusesThoseThatAreCut) {
    ModelTarget target = kSumTarget;
    target.components[0].type = ComponentKind::MemoryStream;
    const auto whole = FileUtils().readBinaryFileToByteVector(Filepath(TEST_MODELS).append(Filepath("sum.onnx")));
    for (size_t size = 1; size < whole.size(); ++size) {
        target.components[0].buffer.assign(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_EQ(load(*model, target).substr(0, 42), R"(12: Component "net": the file holds no ONN)") << size;
    }
    target.components[0].buffer = whole;
    EXPECT_EQ(load(*model, target), kSuccess);
}

TEST_F(OpenCvBackend, OpensProtectedNetworks) {
    const TempDir root;
    const Bytes network = FileUtils().readBinaryFileToByteVector(Filepath(TEST_MODELS).append(Filepath("sum.onnx")));
    const auto archive = TarBuilder().directory("model").file("model/sum.onnx", stringOf(network)).file("notes", "x");
    root.write("network", stringOf(protectedBytes(stringOf(network))));
    root.write("archive", stringOf(protectedBytes(stringOf(archive.whole()))));
    root.write("other",
               stringOf(protectedBytes(stringOf(TarBuilder().file("a.onnx", "x").file("b.ONNX", "x").whole()))));
    const auto loadProtected = [&](const char* kind, const char* path, const unsigned char* key) {
        ModelTarget target = kSumTarget;
        ModelComponent& component = target.components[0];
        component.type = kind;
        component.path = path;
        component.buffer = protectedBytes(stringOf(network));
        component.setCryptoKey(key);
        return text(model->load({MireloModelType::WinML, target, root.path()}));
    };
    const std::pair<const char*, const char*> kinds[] = {
        {"secured_file", "network"}, {"secured_memory_stream", ""}, {"secured_tar", "archive"}};
    for (const auto& [kind, path] : kinds) {
        outputs.clear();
        EXPECT_EQ(loadProtected(kind, path, kTestKey), kSuccess);
        EXPECT_EQ(result(predict({a, b})), "1: y (1,3) 11 0 33;");
        EXPECT_EQ(loadProtected(kind, path, kOtherKey),
                  R"(12: Component "net": the)" + kDoesNotOpen.substr(std::string("12: The").size()));
        EXPECT_EQ(predict({a, b}), "6: The model is not loaded");
    }
    EXPECT_EQ(
        loadProtected("secured_tar", "other", kTestKey),
        R"(12: Component "net": the archive has to hold one file whose name ends in ".onnx", found: "a.onnx", "b.ONNX")");
}

TEST_F(OpenCvBackend, LogsLoadsAndUnloads) {
    EXPECT_EQ(log.substr(0, 46), "1 OpenCV model \"m\": Component \"net\": loaded in");
    log.clear();
    for (int times = 0; times < 2; ++times) EXPECT_EQ(text(model->doUnload()), kSuccess);
    EXPECT_EQ(log, "1 OpenCV model \"m\": unloaded\n");
}

TEST_F(OpenCvBackend, TellsBindingsOfHostsWithoutTypeInformationFromItsOwn) {
    std::shared_ptr<MireloModel::MireloBinding> binding;
    EXPECT_EQ(text(model->bind({a, b}, outputs, binding)), kSuccess);
    for (const auto& foreign : {bareBinding(), {binding, bareBinding().get()}}) {
        binding = foreign;
        EXPECT_EQ(text(model->evaluate(binding)), "6: The binding was not made by this model since it was loaded");
    }
}

TEST_F(OpenCvBackend, ReportsTheMemoryOfAllRows) {
    ModelMetadata metadata;
    metadata.load(Filepath(DIGITS_MODEL).append(Filepath("manifest.json")));
    EXPECT_EQ(text(model->load(metadata.getModelCompoents(MireloModelType::WinML))), kSuccess);
    ModelManager manager;
    const auto reported = [&] { return manager.getRuntimeStatus().getTotalMemoryConsumption(); };
    constexpr uint64_t kWeights = sizeof(float) * (64 * 64 + 64 + 64 * 10 + 10);
    Outputs inputs;
    model->allocateInputs(inputs);
    manager.registerModel(model);
    EXPECT_EQ(predict({inputs.begin(), inputs.end()}), kSuccess);
    const uint64_t one = reported();
    EXPECT_TRUE(one > kWeights && one < 2 * kWeights) << one;
    EXPECT_EQ(text(model->setBatchSize(40'000'000)), "7: A batch of 40000000 rows is more than the engine can count");
    EXPECT_EQ(text(model->setBatchSize(4'000'000'000)), "7: A batch can't have 4000000000 rows");
    for (const unsigned int rows : {30'000'000U, 100U}) {
        EXPECT_EQ(text(model->setBatchSize(rows)), kSuccess);
        EXPECT_EQ(reported() - kWeights, rows * (one - kWeights));
    }
    std::shared_ptr<MireloModel::MireloBinding> many;
    Outputs results;
    EXPECT_EQ(text(model->bind({feature("pixels", {100, 64}, Floats(6400))}, results, many)), kSuccess);
    model->setBatchSize(1);
    EXPECT_EQ(reported(), one);
    EXPECT_EQ(text(model->evaluate(many)), kSuccess);
    EXPECT_EQ(reported() - kWeights, 100 * (one - kWeights));
    model->setBatchSize(1);
    EXPECT_EQ(text(manager.unloadModel(model)), kSuccess);
}

struct Speechless : std::exception {
    const char* what() const noexcept override { return nullptr; }
};

// Adds a constant of its node to its input, and fails where that is told to.
struct Shift : OpenCv::Operator {
    explicit Shift(bool& open) : shapeIsOpen(open) {}
    std::vector<TensorShape> outputShapes(const std::vector<TensorShape>& inputs) const override {
        return {shapeIsOpen ? TensorShape(1, -3) : inputs.at(0)};
    }
    MireloStatus forward(const std::vector<std::shared_ptr<const ITensor>>& inputs,
                         const std::vector<std::shared_ptr<ITensor>>& outputs) override {
        const auto* const x = reinterpret_cast<const float*>(inputs.at(0)->buffer());
        const auto* const shift = reinterpret_cast<const float*>(inputs.at(1)->buffer());
        if (x[0] == 1) throw FileException("raised");
        if (x[0] == 3) throw Speechless();
        if (inputs.at(0)->shape()[0] > 1) return {INVALID_SHAPE, "one row at a time"};
        for (int i = 0; i < 3; ++i) reinterpret_cast<float*>(outputs.at(0)->buffer())[i] = x[i] + shift[i];
        return {x[0] == 2 ? RANGE_ERROR : x[0] == 5 ? WARNING : SUCCESS, "told"};
    }
    bool& shapeIsOpen;
};

TEST_F(OpenCvBackend, ComputesOperatorsOfTheHostOnceTheyAreFinal) {
    using namespace CustomOperators;
    const ModelTarget target = targetOf("operator.onnx", {port("x", {1, 3})}, {port("y", {1, 3})});
    registerCustomOperator("test.Other",
                           [] { return std::make_unique<CustomOperators::Operator>(); });  // another backend's
    bool open = false;
    registerCustomOperator("test.Shift", [&open] { return std::make_unique<Shift>(open); });
    EXPECT_NE(load(*model, target).find(R"(of type "test.Shift")"), std::string::npos);
    bool made = false;  // an operator that no network asks for
    registerCustomOperator("test.Broken", [&made]() -> std::unique_ptr<CustomOperators::Operator> {
        made = true;
        throw FileException("broken");
    });
    finalizeOperatorRegistry();
    EXPECT_EQ(load(*model, target), kSuccess);
    EXPECT_FALSE(made);
    const auto x = [](float first) { return feature("x", {1, 3}, Floats{first, 0, 0}); };
    EXPECT_EQ(result(predict({x(0)})), "1: y (1,3) 1 2 3;");
    EXPECT_EQ(result(predict({x(5)})), "1: y (1,3) 6 2 3;");  // a warning is no failure
    {
        Device device("CPU", MireloModelType::WinML);
        std::vector<std::jthread> threads;  // each with a model of its own
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                OpenCv::Model own("own", &device, configOf(std::make_shared<LogProcessorContainer>()));
                Outputs results;
                EXPECT_EQ(load(own, target), kSuccess);
                EXPECT_EQ(text(own.predict({x(4)}, results)), kSuccess);
                EXPECT_EQ(text(results), "y (1,3) 5 2 3;");
            });
        }
    }
    open = true;
    EXPECT_EQ(load(*model, target), "17: test.Shift: an output can't have the shape (1, -3)");
    open = false;
    EXPECT_EQ(load(*model, target), kSuccess);
    EXPECT_EQ(predict({x(1)}), "3: raised");
    EXPECT_EQ(predict({x(2)}), "14: test.Shift: told");
    EXPECT_EQ(predict({x(3)}), "13: ");
    {
        OpenCv::Options independent;
        independent.rowsAreIndependent = true;  // but what can't take several rows gets them one by one
        OpenCv::Model stacking("m", MireloModelType::WinML, config, independent);
        EXPECT_EQ(load(stacking, target), kSuccess);
        Outputs results;
        EXPECT_EQ(text(stacking.predictBatch({x(5), x(7)}, results)), kSuccess);
        EXPECT_EQ(text(results), "y (1,3) 6 2 3;y (1,3) 8 2 3;");
    }
    getMutableOperatorRegistry().clear();
    EXPECT_EQ(result(predict({x(5)})), "1: y (1,3) 6 2 3;");  // a loaded network keeps its operators
    EXPECT_EQ(load(*model, target).substr(0, 3), "13:");
}

}  // namespace
}  // namespace TarnoMirelo
