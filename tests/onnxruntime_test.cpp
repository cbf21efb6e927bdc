// What is this engine's own; that the backend keeps the contract of a backend is tested by conformance/onnxruntime.cpp.

#include "support/onnx_writer.h"
#include "support/protection.h"
#include "support/tar_builder.h"
#include "support/temp_dir.h"
#include "support/text.h"

#include <TarnoMirelo/TarnoMirelo.h>
#include <TarnoMirelo/onnxruntime.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>

namespace TarnoMirelo {
namespace {

using namespace OnnxWriter;
using OnnxRuntime::CacheStatus;
using Inputs = MireloModel::Inputs;
using Outputs = MireloModel::Outputs;
using testing::HasSubstr;
using Floats = std::vector<float>;

ModelFeatureDescriptor describe(const std::string& name, const TensorShape& shape, DataType type = DataType::Float) {
    return {MireloFeatureType::Tensor, true, name, "", TensorDescriptor(shape, type)};
}

template <typename Element>
std::shared_ptr<MireloFeatureTensor> feature(const std::string& name, const TensorShape& shape,
                                             const std::vector<Element>& values, DataType type = DataType::Float) {
    auto tensor = std::make_shared<Tensor>(type, shape);
    if (!values.empty()) std::memcpy(tensor->buffer(), values.data(), values.size() * sizeof(Element));
    return std::make_shared<MireloFeatureTensor>(describe(name, shape, type), std::move(tensor));
}

std::string text(const ITensor& tensor) {
    std::string all = list(tensor.shape());
    for (int64_t i = 0; i < tensor.shape().size(); ++i) {
        const bool isFloat = tensor.dataType() == DataType::Float;
        all += isFloat ? list("", reinterpret_cast<const float*>(tensor.buffer())[i])
                       : list("", reinterpret_cast<const int64_t*>(tensor.buffer())[i]);
    }
    return all;
}

/// y = x + w, where w is (10, 20)
std::string sum(const std::vector<int64_t>& shape = {-1, 2}, const Floats& weights = {10, 20}) {
    return network({node("Add", {"x", "w"}, {"y"})}, {port("x", DataType::Float, shape)},
                   {port("y", DataType::Float, shape)}, {constant("w", {1, 2}, weights)});
}

struct Sink : ILogProcessor {
    void Process(const LogEntry& entry) override {
        written += list(static_cast<int>(entry.severity), entry.message) + "\n";
        throw 1;  // which nobody suffers from
    }
    std::string written;
};

class OnnxRuntimeBackend : public testing::Test {
 protected:
    using Descriptors = std::vector<ModelFeatureDescriptor>;

    MireloModel::Components components(const std::string& path, const std::string& kind, const Descriptors& inputs,
                                       const Descriptors& outputs) {
        const ModelComponent component{"net", path, Encryption(), kind, {}};
        return {MireloModelType::WinML, {MireloModelType::WinML, {component}, {}, {}, inputs, outputs}, folder.path()};
    }
    /// Of a network that this writes to a file.
    MireloModel::Components written(const std::string& bytes, const Descriptors& inputs, const Descriptors& outputs) {
        folder.write("net.onnx", bytes);
        return components("net.onnx", ComponentKind::File, inputs, outputs);
    }
    std::shared_ptr<OnnxRuntime::Model> make(const OnnxRuntime::Options& options = {}) {
        MireloConfig config;
        config.SetLogger(sink);
        return std::make_shared<OnnxRuntime::Model>("m", MireloModelType::WinML, config, options);
    }
    std::string load(const std::string& bytes, const Descriptors& inputs, const Descriptors& outputs) {
        return text(model->load(written(bytes, inputs, outputs)));
    }
    std::string loadSum() { return load(sum(), {describe("x", {1, 2})}, {describe("y", {1, 2})}); }
    static std::string predict(MireloModel& of, const Inputs& inputs) {
        Outputs outputs;
        const MireloStatus status = of.predict(inputs, outputs);
        return status.ok() ? text(*outputs.at(0)->asTensor()) : text(status);
    }
    std::string predict(const Inputs& inputs) { return predict(*model, inputs); }

    TempDir folder;
    std::shared_ptr<Sink> sink = std::make_shared<Sink>();
    std::shared_ptr<OnnxRuntime::Model> model = make();
};

TEST_F(OnnxRuntimeBackend, ComparesTheTargetWithTheNetwork) {
    struct Case {
        Descriptors inputs, outputs;
        const char* expected;
    };
    const ModelFeatureDescriptor x = describe("x", {1, 2});
    const ModelFeatureDescriptor y = describe("y", {1, 2});
    const Case cases[] = {
        {{describe("z", {1, 2})}, {y}, R"(Input "z": the network has none of that name, but "x")"},
        {{x}, {describe("z", {1, 2})}, R"(Output "z": the network has none of that name, but "y")"},
        {{describe("x", {1, 2}, DataType::Int64)},
         {y},
         R"(Input "x": the network has elements of type float, declared is int64)"},
        {{x},
         {describe("y", {1, 2}, DataType::Double)},
         R"(Output "y": the network has elements of type float, declared is double)"},
        {{describe("x", TensorShape(2))}, {y}, R"(Input "x": the network has the shape (-1, 2), declared is (2))"},
        {{x}, {describe("y", {1, 3})}, R"(Output "y": the network has the shape (-1, 2), declared is (1, 3))"}};
    for (const Case& test : cases) {
        EXPECT_EQ(load(sum(), test.inputs, test.outputs), std::string("12: Component \"net\": ") + test.expected);
    }
    const std::string two =
        network({node("Add", {"x", "z"}, {"y"})}, {port("x", DataType::Float, {2}), port("z", DataType::Float, {2})},
                {port("y", DataType::Float, {2})});
    EXPECT_EQ(load(two, {describe("x", TensorShape(2))}, {describe("y", TensorShape(2))}),
              R"(12: Component "net": Input "z": the network has it, the target lacks it)");
    const std::string floats = message(1, number(1, 1));
    const std::string sequence =
        network({node("SequenceLength", {"x"}, {"y"})}, {message(1, "x") + message(2, message(4, message(1, floats)))},
                {port("y", DataType::Int64, {})});
    const ModelFeatureDescriptor length = describe("y", {}, DataType::Int64);
    EXPECT_EQ(load(sequence, {}, {length}),
              R"(12: Component "net": Input "x": the network has a sequence, which no target can describe)");
    EXPECT_EQ(load(sequence, {x}, {length}),
              R"(12: Component "net": Input "x": the network has a sequence, declared is float)");
    const std::string strings =
        network({node("Identity", {"x"}, {"y"})}, {message(1, "x") + message(2, message(1, number(1, 8)))},
                {message(1, "y") + message(2, message(1, number(1, 8)))});
    EXPECT_EQ(load(strings, {x}, {y}),
              R"(12: Component "net": Input "x": the network has elements of type string, declared is float)");
    // What the target leaves open, the network tells.
    EXPECT_EQ(load(sum({3, 2}), {describe("x", {-1, -1})}, {describe("y", {-1, -1})}), kSuccess);
    EXPECT_EQ(predict({feature("x", {1, 2}, Floats{1, 2})}), R"(17: Input "x": the shape is (1, 2), wanted is (3, 2))");
}

// Of x = (1 2, 3 4), at every level.
TEST_F(OnnxRuntimeBackend, ComputesTheSameHoweverFarOptimised) {
    const std::string same = ints("perm", {0, 1});
    const std::string w = constant("w", {2, 2}, {5, 6, 7, 8});
    const std::string b = constant("b", {2}, {100, 200});
    const auto sizes = [](const std::string& name, const std::vector<int64_t>& values) {
        return constant(name, DataType::Int64, {static_cast<int64_t>(values.size())}, values);
    };
    const std::string scale = constant<float>("s", DataType::Float, {}, {0.5F});
    const auto zeroPoint = [](const std::string& name, uint8_t value) {
        return constant<uint8_t>(name, DataType::UInt8, {}, {value});
    };
    struct Case {
        std::vector<std::string> nodes, constants;
        const char* expected;
        std::vector<std::string> outputs = {"y"};
    };
    const Case cases[] = {
        {{node("Transpose", {"x"}, {"t"}) + same, node("Gemm", {"t", "w"}, {"y"})}, {w}, "(2,2) 19 22 43 50"},
        {{node("Transpose", {"w"}, {"t"}) + same, node("Gemm", {"x", "t"}, {"y"})}, {w}, "(2,2) 19 22 43 50"},
        {{node("Gemm", {"x", "w"}, {"t"}), node("Transpose", {"t"}, {"y"}) + same}, {w}, "(2,2) 19 22 43 50"},
        {{node("Transpose", {"x"}, {"t"}) + same, node("MatMul", {"t", "w"}, {"m"}), node("Add", {"m", "b"}, {"y"})},
         {w, b},
         "(2,2) 119 222 143 250"},
        {{node("Transpose", {"x"}, {"t"}), node("Gemm", {"t", "w"}, {"y"})}, {w}, "(2,2) 26 30 38 44"},
        {{node("Neg", {"x"}, {"n"}), node("Reshape", {"n", "image"}, {"i"}), node("Pad", {"i", "pads"}, {"p"}),
          node("MaxPool", {"p"}, {"m"}) + ints("kernel_shape", {2, 2}), node("Reshape", {"m", "matrix"}, {"y"})},
         {sizes("image", {1, 1, 2, 2}), sizes("pads", {0, 0, 0, 0, 0, 0, 1, 1}), sizes("matrix", {2, 2})},
         "(2,2) -1 0 0 0"},
        // y is an output and quantised, too; and twice, with other zero points.
        {{node("Neg", {"x"}, {"y"}), node("Transpose", {"y"}, {"t"}), node("QuantizeLinear", {"t", "s", "zero"}, {"q"}),
          node("DequantizeLinear", {"q", "s", "zero"}, {"z"})},
         {scale, zeroPoint("zero", 0)},
         "(2,2) -1 -2 -3 -4",
         {"y", "z"}},
        {{node("QuantizeLinear", {"x", "s", "zero"}, {"q"}), node("DequantizeLinear", {"q", "s", "zero"}, {"d"}),
          node("QuantizeLinear", {"d", "s", "three"}, {"r"}), node("DequantizeLinear", {"r", "s", "three"}, {"y"})},
         {scale, zeroPoint("zero", 0), zeroPoint("three", 3)},
         "(2,2) 1 2 3 4"},
    };
    for (const Case& test : cases) {
        for (int level = 0; level <= 3; ++level) {
            OnnxRuntime::Options options;
            options.graphOptimization = OnnxRuntime::GraphOptimization(level);
            model = make(options);
            std::vector<std::string> outputs;
            for (const std::string& name : test.outputs) outputs.push_back(port(name, DataType::Float, {2, 2}));
            const std::string bytes =
                network(test.nodes, {port("x", DataType::Float, {2, 2})}, outputs, test.constants);
            ASSERT_EQ(load(bytes, {describe("x", {2, 2})}, {describe("y", {2, 2})}), kSuccess);
            EXPECT_EQ(predict({feature("x", {2, 2}, Floats{1, 2, 3, 4})}), test.expected) << "level " << level;
        }
    }
}

TEST_F(OnnxRuntimeBackend, TellsThatANetworkLoadsUnoptimised) {
    const std::string perm = ints("perm", {0, 2, 3, 1});
    const std::string linear = message(5, message(1, "mode") + message(4, "linear") + number(20, 3));
    const std::string bytes =
        network({node("Transpose", {"x"}, {"t"}) + perm, node("Resize", {"t", "", "scales"}, {"r"}) + linear,
                 node("Transpose", {"r"}, {"y"}) + perm},
                {port("x", DataType::Float, {1, 2, 2, 2})}, {port("y", DataType::Float, {1, 4, 4, 2})},
                {constant("scales", {4}, {1, 1, 2, 2})});
    const Descriptors x = {describe("x", {1, 2, 2, 2})};
    const Descriptors y = {describe("y", {1, 4, 4, 2})};
    EXPECT_THAT(load(bytes, x, y),
                HasSubstr("; the network loads without optimisation: try a lower graphOptimization"));
    OnnxRuntime::Options options;
    options.graphOptimization = OnnxRuntime::GraphOptimization::Basic;
    model = make(options);
    EXPECT_EQ(load(bytes, x, y), kSuccess);
}

TEST_F(OnnxRuntimeBackend, RefusesWhatIsNoNetwork) {
    const Descriptors x = {describe("x", {1, 2})};
    const Descriptors y = {describe("y", {1, 2})};
    const std::string whole = sum();
    for (size_t size = 0; size < whole.size(); ++size) {
        const std::string status = load(whole.substr(0, size), x, y);
        // A graph that is whole is followed by what operators it uses: the engine may take a network without.
        const bool isRefused = status.rfind("12: Component \"net\": ", 0) == 0;
        EXPECT_TRUE(isRefused || (status == kSuccess && size + 20 >= whole.size())) << size << " " << status;
    }
    const auto ports = [](const std::vector<std::string>& nodes) {
        return network(nodes, {port("x", DataType::Float, {1, 2})}, {port("y", DataType::Float, {1, 2})});
    };
    const auto function = [](const std::string& node) {
        return message(25, message(1, "Twice") + message(4, "a") + message(4, "b") + message(7, node) +
                               message(9, number(2, 13)) + message(10, "own"));
    };
    const std::string call = ports({message(1, "x") + message(2, "y") + message(4, "Twice") + message(7, "own")}) +
                             message(8, message(1, "own") + number(2, 1));
    const std::pair<std::string, const char*> refused[] = {
        {"", "the file holds no ONNX network, or only a part of one"},
        {"not of this format", "the file holds no ONNX network, or only a part of one"},
        {std::string("PK\3\4", 4), "the file holds no ONNX network, or only a part of one"},
        {std::string(4096, '\0'), "the file holds no ONNX network, or only a part of one"},
        {ports({node("Mystery", {"x"}, {"y"}, "example")}), "example:Mystery(-1) is not a registered function/op"},
        {ports({node("Mystery", {"x"}, {"y"})}), "Mystery"},
        {ports({node("Neg", {"gone"}, {"y"})}), "gone"},
        {ports({node("Add", {"x", "y"}, {"y"})}), ""},
        // Over which the engine crashes.
        {call + function(node("Add", {"a", "a"}, {"b"})),
         R"(the function "own.Twice" has a node that writes to the function's own input "b")"},
    };
    for (const auto& [bytes, expected] : refused) {
        EXPECT_THAT(load(bytes, x, y),
                    testing::AllOf(testing::StartsWith("12: Component \"net\": "), HasSubstr(expected)));
    }
    std::string deep = "x";
    for (int i = 0; i < 1000; ++i)
        deep = message(1, message(5, message(6, deep)));  // graph, node, attribute, graph, ...
    EXPECT_EQ(load(message(7, deep), x, y),
              R"(12: Component "net": the file holds no ONNX network, or only a part of one)");
}

TEST_F(OnnxRuntimeBackend, NamesTheKindsThatItTakes) {
    EXPECT_EQ(text(model->load(components("net.onnx", "tar", {describe("x", {1, 2})}, {describe("y", {1, 2})}))),
              R"(12: Component "net": the kind is "tar", wanted is "file", "dir", "memory_stream", "secured_file", )"
              R"("secured_memory_stream" or "secured_tar")");
}

TEST_F(OnnxRuntimeBackend, FindsWeightsBesideTheNetworkAlone) {
    const auto with = [](const std::string& location) {
        return network({node("Add", {"x", "w"}, {"y"})}, {port("x", DataType::Float, {1, 2})},
                       {port("y", DataType::Float, {1, 2})},
                       {outside(constant("w", DataType::Float, {1, 2}), location)});
    };
    const Descriptors x = {describe("x", {1, 2})};
    const Descriptors y = {describe("y", {1, 2})};
    const float weights[] = {10, 20};
    const std::string bytes(reinterpret_cast<const char*>(weights), sizeof weights);
    folder.write("weights.bin", bytes);
    std::filesystem::create_directory(folder.native() / "net");
    std::filesystem::create_directory(folder.native() / "none");
    std::ofstream(folder.native() / "net" / "weights.bin", std::ios::binary) << bytes;
    std::ofstream(folder.native() / "net" / "any.ONNX", std::ios::binary) << with("weights.bin");

    const std::string begin = R"(Component "net": )";
    const auto loadFolder = [&](const char* path) { return text(model->load(components(path, "dir", x, y))); };
    EXPECT_EQ(loadFolder("net"), kSuccess);
    EXPECT_EQ(predict({feature("x", {1, 2}, Floats{1, 2})}), "(1,2) 11 22");
    const std::string wanted = begin + R"(the folder has to hold one file whose name ends in ".onnx", found: )";
    EXPECT_EQ(loadFolder("none"), "12: " + wanted + "none");
    std::ofstream(folder.native() / "net" / "more.onnx") << "";
    EXPECT_EQ(loadFolder("net"), "12: " + wanted + R"("any.ONNX", "more.onnx")");

    EXPECT_EQ(load(with("weights.bin"), x, y), kSuccess);
    EXPECT_EQ(load(with("gone.bin"), x, y), "3: " + begin + R"(the weights in "gone.bin" are missing, or in no file)");
    const std::string absolute = (folder.native() / "weights.bin").generic_string();
    for (const std::string& location :
         {std::string("../weights.bin"), std::string("net/../../weights.bin"), absolute}) {
        EXPECT_EQ(load(with(location), x, y),
                  "12: " + begin + "the weights in \"" + location + "\" lie outside of the network's folder");
    }
    const std::string backslash = R"(the weights in "net\weights.bin" have a path with a backslash, wanted is "/")";
    EXPECT_THAT(load(with("net\\weights.bin"), x, y), HasSubstr("12: " + begin + backslash));
    auto inMemory = components("", ComponentKind::MemoryStream, x, y);
    const std::string network = with("weights.bin");
    std::get<ModelTarget>(inMemory).components[0].buffer.assign(network.begin(), network.end());
    EXPECT_EQ(text(model->load(inMemory)),
              "12: " + begin + R"(the weights in "weights.bin" lie outside of the network, which is in memory)");
}

TEST_F(OnnxRuntimeBackend, OpensProtectedNetworks) {
    const Descriptors x = {describe("x", {1, 2})};
    const Descriptors y = {describe("y", {1, 2})};
    const auto loadProtected = [&](const std::string& kind, const std::string& plain, const unsigned char* key) {
        folder.write("protected", stringOf(protectedBytes(plain)));
        auto asked = components("protected", kind, x, y);
        ModelComponent& component = std::get<ModelTarget>(asked).components[0];
        component.buffer = protectedBytes(plain);
        component.setCryptoKey(key);
        return text(model->load(asked));
    };
    const auto archive = [](const TarBuilder& builder) { return stringOf(builder.whole()); };
    const auto with = [](const std::string& location) {
        return network({node("Add", {"x", "w"}, {"y"})}, {port("x", DataType::Float, {1, 2})},
                       {port("y", DataType::Float, {1, 2})},
                       {outside(constant("w", DataType::Float, {1, 2}), location)});
    };
    const Floats weights = {10, 20};
    const std::string bytes(reinterpret_cast<const char*>(weights.data()), weights.size() * sizeof(float));
    const std::pair<const char*, std::string> good[] = {
        {"secured_file", sum()},
        {"secured_memory_stream", sum()},
        {"secured_tar", archive(TarBuilder().file("sum.onnx", sum()).file("notes", "x"))},
        {"secured_tar", archive(TarBuilder().file("net/a.ONNX", with("w/w.bin")).file("net/w/w.bin", bytes))},
        {"secured_tar", archive(TarBuilder().file("w.bin", bytes).file("a.onnx", with("w.bin")))},
    };
    for (const auto& [kind, plain] : good) {
        EXPECT_EQ(loadProtected(kind, plain, kTestKey), kSuccess) << kind;
        EXPECT_EQ(predict({feature("x", {1, 2}, Floats{1, 2})}), "(1,2) 11 22");
        EXPECT_EQ(loadProtected(kind, plain, kOtherKey),
                  R"(12: Component "net": the)" + kDoesNotOpen.substr(std::string("12: The").size()));
        EXPECT_EQ(predict({feature("x", {1, 2}, Floats{1, 2})}), "6: The model is not loaded");
    }

    // Beside the protected file in the folder: what isn't in the archive is not taken from a disk.
    folder.write("w.bin", bytes);
    const std::string begin = R"(12: Component "net": )";
    const std::pair<std::string, std::string> refused[] = {
        {archive(TarBuilder().file("a.onnx", with("w.bin"))), R"(the weights in "w.bin" are missing in the archive)"},
        {archive(TarBuilder().file("n/a.onnx", with("../w.bin")).file("w.bin", bytes)),
         R"(the weights in "../w.bin" lie outside of the network's folder)"},
        {archive(TarBuilder().file("a.onnx", sum()).file("b.ONNX", sum())),
         R"(the archive has to hold one file whose name ends in ".onnx", found: "a.onnx", "b.ONNX")"},
        {archive(TarBuilder().file("w.bin", bytes)),
         R"(the archive has to hold one file whose name ends in ".onnx", found: none)"},
    };
    for (const auto& [plain, expected] : refused) {
        EXPECT_EQ(loadProtected("secured_tar", plain, kTestKey), begin + expected);
    }
    EXPECT_EQ(loadProtected("secured_file", with("w.bin"), kTestKey),
              begin + R"(the weights in "w.bin" lie outside of the network, which is in memory)");
    const std::string cut = archive(TarBuilder().file("a.onnx", with("w.bin")).file("w.bin", bytes.substr(0, 4)));
    EXPECT_THAT(loadProtected("secured_tar", cut, kTestKey), HasSubstr(begin));
}

TEST_F(OnnxRuntimeBackend, TakesEveryElementTypeInPlace) {
    for (int number = 1; number <= 12; ++number) {
        const auto type = static_cast<DataType>(number);
        for (const std::vector<int64_t>& shape : {std::vector<int64_t>{2, 2}, std::vector<int64_t>{}, {0, 2}}) {
            SCOPED_TRACE(testing::Message() << "type " << number << ", " << shape.size() << " dimensions");
            const std::string bytes =
                network({node("Identity", {"x"}, {"y"})}, {port("x", type, shape)}, {port("y", type, shape)});
            ASSERT_EQ(load(bytes, {describe("x", shape, type)}, {describe("y", shape, type)}), kSuccess);
            const auto x = feature<uint8_t>("x", shape, {}, type);
            const auto size = static_cast<size_t>(x->asTensor()->bytes());
            std::vector<uint8_t> elements(size);
            for (size_t i = 0; i < size; ++i)
                elements[i] = type == DataType::Bool ? i % 2 : static_cast<uint8_t>(i + 1);
            std::copy(elements.begin(), elements.end(), x->asTensor()->buffer());
            const auto y = feature<uint8_t>("y", shape, {}, type);
            const uint8_t* const place = y->asTensor()->buffer();
            Outputs outputs = {y};
            EXPECT_EQ(text(model->predict({x}, outputs)), kSuccess);
            EXPECT_EQ(y->asTensor()->buffer(), place);
            EXPECT_TRUE(std::equal(elements.begin(), elements.end(), place));
        }
    }
}

// Results that the engine does not compute but hands on: they come to where they are wanted, too.
TEST_F(OnnxRuntimeBackend, WritesInputsAndConstantsThatAreOutputs) {
    const std::string bytes = network(
        {node("Neg", {"x"}, {"y"})}, {port("x", DataType::Float, {1, 2})},
        {port("y", DataType::Float, {1, 2}), port("x", DataType::Float, {1, 2}), port("w", DataType::Float, {1, 2})},
        {constant("w", {1, 2}, {10, 20})});
    const Descriptors all = {describe("y", {1, 2}), describe("x", {1, 2}), describe("w", {1, 2})};
    ASSERT_EQ(load(bytes, {all[1]}, all), kSuccess);
    const auto x = feature("x", {1, 2}, Floats{1, 2});
    Outputs outputs;
    Outputs bound;
    std::shared_ptr<MireloModel::MireloBinding> binding;
    EXPECT_EQ(text(model->predict({x}, outputs)), kSuccess);
    EXPECT_EQ(text(model->bind({x}, bound, binding)), kSuccess);
    EXPECT_EQ(text(model->evaluate(binding)), kSuccess);
    for (const Outputs& each : {outputs, bound}) {
        EXPECT_EQ(list(text(*each[0]->asTensor()), text(*each[1]->asTensor()), text(*each[2]->asTensor())),
                  "(1,2) -1 -2 (1,2) 1 2 (1,2) 10 20");
    }
}

TEST_F(OnnxRuntimeBackend, GivesOutputsTheShapesThatOnlyTheRunTells) {
    const std::string bytes = network({node("NonZero", {"x"}, {"y"})}, {port("x", DataType::Float, {3})},
                                      {port("y", DataType::Int64, {1, -1})});
    const Descriptors x = {describe("x", TensorShape(3))};
    ASSERT_EQ(load(bytes, x, {describe("y", {1, -1}, DataType::Int64)}), kSuccess);
    const auto input = feature("x", TensorShape(3), Floats{0, 5, 6});
    Outputs bound;
    std::shared_ptr<MireloModel::MireloBinding> binding;
    EXPECT_EQ(text(model->bind({input}, bound, binding)), kSuccess);
    for (const auto& [values, expected] : {std::pair(Floats{0, 5, 6}, "(1,2) 1 2"), std::pair(Floats{0, 0, 0}, "(1,0)"),
                                           std::pair(Floats{4, 5, 6}, "(1,3) 0 1 2")}) {
        std::memcpy(input->asTensor()->buffer(), values.data(), 3 * sizeof(float));
        EXPECT_EQ(predict({input}), expected);
        EXPECT_EQ(text(model->evaluate(binding)), kSuccess);
        EXPECT_EQ(text(*bound.at(0)->asTensor()), expected);
    }
    EXPECT_THAT(sink->written, testing::Not(HasSubstr("engine: ")));  // which would be of a failure
    // Where the host or the target expects another shape.
    Outputs given = {feature<int64_t>("y", {1, 2}, {}, DataType::Int64)};
    EXPECT_EQ(text(model->predict({input}, given)), R"(17: Output "y": the shape is (1, 2), wanted is (1, 3))");
    const std::string other = R"(12: Output "y": the engine gives the shape (1, 3), declared is (1, 2))";
    EXPECT_EQ(load(bytes, x, {describe("y", {1, 2}, DataType::Int64)}), kSuccess);
    EXPECT_EQ(predict({input}), other);
    bound.clear();
    EXPECT_EQ(text(model->bind({input}, bound, binding)), kSuccess);
    EXPECT_EQ(text(model->evaluate(binding)), other);
}

TEST_F(OnnxRuntimeBackend, CountsRows) {
    ASSERT_EQ(loadSum(), kSuccess);
    EXPECT_EQ(text(model->setBatchSize(0)), "7: A batch can't have 0 rows");
    EXPECT_EQ(text(model->setBatchSize(3)), kSuccess);
    EXPECT_EQ(predict({feature("x", {3, 2}, Floats{1, 2, 3, 4, 5, 6})}), "(3,2) 11 22 13 24 15 26");
    ASSERT_EQ(load(sum({1, 2}), {describe("x", {1, 2})}, {describe("y", {1, 2})}), kSuccess);
    EXPECT_EQ(text(model->setBatchSize(3)), "6: The model can't take 3 rows at once");
    constexpr int64_t kMany = int64_t{1} << 40;
    const Descriptors wide = {describe("x", {1, kMany})};
    ASSERT_EQ(load(sum({-1, -1}), wide, {describe("y", {1, -1})}), kSuccess);
    EXPECT_EQ(text(model->setBatchSize(4'000'000)), "7: A batch of 4000000 rows is more than can be counted");
}

TEST_F(OnnxRuntimeBackend, WantsWhatTheNetworkHasNoConstantFor) {
    const std::string bytes = network({node("Add", {"x", "z"}, {"y"})},
                                      {port("x", DataType::Float, {1, 2}), port("z", DataType::Float, {1, 2})},
                                      {port("y", DataType::Float, {1, 2})});
    const ModelFeatureDescriptor z(MireloFeatureType::Tensor, false, "z", "",
                                   TensorDescriptor({1, 2}, DataType::Float));
    ASSERT_EQ(load(bytes, {describe("x", {1, 2}), z}, {describe("y", {1, 2})}), kSuccess);
    const std::string missing = R"(7: Input "z": missing; the network has no constant in its place)";
    const auto x = feature("x", {1, 2}, Floats{1, 2});
    EXPECT_EQ(predict({x}), missing);
    Outputs bound;
    std::shared_ptr<MireloModel::MireloBinding> binding;
    EXPECT_EQ(text(model->bind({x}, bound, binding)), missing);
    EXPECT_EQ(predict({x, feature("z", {1, 2}, Floats{3, 4})}), "(1,2) 4 6");
}

TEST_F(OnnxRuntimeBackend, DescribesNetworks) {
    const auto ofType = [](uint64_t type) { return message(2, message(1, number(1, type))); };
    const std::pair<std::string, std::string> networks[] = {
        {network({node("Add", {"x", "w"}, {"y"})},
                 {port("x", DataType::Float, {-1, 2}), port("w", DataType::Float, {2})},
                 {port("y", DataType::Float, {-1, 2})}, {constant("w", {2}, {1, 2})}),
         "1:  x 11 (-1,2) y 11 (-1,2)"},
        {network({node("Cast", {"x"}, {"y"})}, {message(1, "x") + ofType(8)}, {message(1, "y") + ofType(8)}),
         R"(12: Component "net": )"},
        {network({node("Identity", {"x"}, {"y"})}, {message(1, "x") + ofType(8)}, {message(1, "y") + ofType(8)}),
         R"(12: Component "net": Input "x": it is a tensor of elements of type string, which no target can describe)"},
        {network({node("Identity", {"x"}, {"y"})}, {message(1, "x") + ofType(1)}, {message(1, "y") + ofType(1)}),
         R"(12: Component "net": Input "x": the network doesn't say how many dimensions it has)"},
        {network({node("Identity", {"x"}, {"y"})}, {message(1, "x") + ofType(16)}, {message(1, "y") + ofType(16)}),
         R"(12: Component "net": Input "x": it is a tensor of elements of type bfloat16, which no target can describe)"},
        {network({node("Identity", {"x"}, {"y"})}, {message(1, "x") + ofType(14)}, {message(1, "y") + ofType(14)}),
         R"(12: Component "net": )"},
        {network({node("SequenceConstruct", {"x"}, {"y"})}, {port("x", DataType::Float, {1})},
                 {message(1, "y") + message(2, message(4, message(1, message(1, number(1, 1)))))}),
         R"(12: Component "net": Output "y": it is a sequence, which no target can describe)"},
        {"none", R"(12: Component "net": the file holds no ONNX network, or only a part of one)"},
    };
    for (const auto& [bytes, expected] : networks) {
        const auto asked = written(bytes, {}, {});
        OnnxRuntime::NetworkDescription found;
        MireloConfig config;
        config.SetLogger(sink);
        std::string all = text(
            OnnxRuntime::describeNetwork(std::get<ModelTarget>(asked).components[0], folder.path(), found, config));
        for (const auto* const ports : {&found.inputs, &found.outputs}) {
            for (const ModelFeatureDescriptor& each : *ports) {
                const TensorDescriptor tensor = each.tensorDescriptor();
                all += list("", each.name(), static_cast<int>(tensor.tensorType()), list(tensor.shape()));
            }
        }
        EXPECT_EQ(all.substr(0, expected.size()), expected);
    }
}

TEST_F(OnnxRuntimeBackend, ComputesWithTheProviderOfTheDevice) {
    const std::vector<std::shared_ptr<Device>> devices = OnnxRuntime::devices();
    ASSERT_FALSE(devices.empty());
    EXPECT_EQ(devices.back()->getDeviceName(), "CPUExecutionProvider");
    EXPECT_EQ(devices.back()->getORTType(), OrtEP::CPU);
    const auto components = written(sum(), {describe("x", {1, 2})}, {describe("y", {1, 2})});
    Device cuda("a", MireloModelType::OnnxRuntime, DeviceType::GPU, OrtEP::CUDA);
    const auto shared = std::make_shared<Device>("b", MireloModelType::OnnxRuntime, DeviceType::NPU, OrtEP(77));
    const std::string refused = R"(7: Component "net": This engine has no execution provider )";
    OnnxRuntime::Model byPointer("m", &cuda);
    EXPECT_EQ(text(byPointer.load(components)), refused + "CUDAExecutionProvider, but CPUExecutionProvider");
    OnnxRuntime::Model byShare("m", shared);
    EXPECT_EQ(text(byShare.load(components)), refused + "of number 77, but CPUExecutionProvider");
    OnnxRuntime::Options options;
    options.executionProvider = OrtEP::CPU;
    options.threadsWithinNodes = 2;
    options.threadsBetweenNodes = 2;
    OnnxRuntime::Model byOption("m", &cuda, MireloConfig(), options);
    EXPECT_EQ(text(byOption.load(components)), kSuccess);
    EXPECT_EQ(predict(byOption, {feature("x", {1, 2}, Floats{1, 2})}), "(1,2) 11 22");
    options.graphOptimization = OnnxRuntime::GraphOptimization::Extended;
    EXPECT_EQ(text(make(options)->load(components)), kSuccess);
    options.graphOptimization = OnnxRuntime::GraphOptimization(9);
    EXPECT_EQ(text(make(options)->load(components)),
              R"(7: Component "net": Options: the graph optimisation has the unknown number 9)");
    const std::string threads = R"(7: Component "net": Options: a number of threads is )";
    options.threadsWithinNodes = -1;
    EXPECT_EQ(text(make(options)->load(components)), threads + "-1, wanted is 0 to 1024");
    options.threadsWithinNodes = 1;
    options.threadsBetweenNodes = 1025;
    EXPECT_EQ(text(make(options)->load(components)), threads + "1025, wanted is 0 to 1024");
    auto two = components;
    std::get<ModelTarget>(two).components.push_back({"more", "net.onnx", Encryption(), ComponentKind::File, {}});
    EXPECT_EQ(text(make()->load(two)), R"(12: Component "more": a target has one component, a network)");
}

// Each copy is a network of its own: the memory tells that it is there, and the results that it is the same one.
TEST_F(OnnxRuntimeBackend, RunsCopiesOfTheNetwork) {
    OnnxRuntime::Options options;
    options.threadsWithinNodes = 1;
    options.cacheDirectory = folder.path("cache");
    uint64_t one = 0;
    for (const int copies : {1, 3}) {
        options.copies = copies;
        model = make(options);
        ModelManager manager;
        ASSERT_EQ(text(manager.registerModel(model)), kSuccess);
        ASSERT_EQ(loadSum(), kSuccess);
        EXPECT_TRUE(model->getCachedModelFilePath().has_value());
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&, first = static_cast<float>(i)] {
                const Inputs inputs = {feature("x", {1, 2}, Floats{first, 1})};
                Outputs bound;
                std::shared_ptr<MireloModel::MireloBinding> binding;
                EXPECT_EQ(text(model->bind(inputs, bound, binding)), kSuccess);
                const std::string expected = list("(1,2)", first + 10, 21);
                for (int round = 0; round < 100; ++round) {
                    EXPECT_EQ(predict(inputs), expected);
                    EXPECT_EQ(text(model->evaluate(binding)), kSuccess);
                    EXPECT_EQ(text(*bound.at(0)->asTensor()), expected);
                }
            });
        }
        for (std::thread& thread : threads) thread.join();
        const uint64_t bytes = manager.getRuntimeStatus().getModelsRuntimeStatus().at(0).getCurrentMemoryConsumption();
        if (copies == 1) one = bytes;
        EXPECT_GE(bytes, static_cast<uint64_t>(copies) * one);
        EXPECT_EQ(text(manager.unloadModel(model)), kSuccess);
    }
    options.copies = 0;
    EXPECT_EQ(text(make(options)->load(written(sum(), {}, {}))),
              R"(7: Component "net": Options: the number of copies is below 1)");
}

class OnnxRuntimeCache : public OnnxRuntimeBackend {
 protected:
    OnnxRuntimeCache() { options.cacheDirectory = folder.path("cache"); }
    CacheStatus query() { return static_cast<CacheStatus>(make(options)->queryCacheStatus(asked)); }
    // Loads, and says whether the cache was used and what was computed.
    std::string use() {
        sink->written.clear();
        const auto loaded = make(options);
        EXPECT_EQ(text(loaded->load(asked)), kSuccess);
        if (loaded->getCachedModelFilePath())
            file = std::filesystem::directory_iterator(folder.native() / "cache")->path();
        return list(loaded->getCachedModelFilePath().has_value(),
                    predict(*loaded, {feature("x", {1, 2}, Floats{1, 2})}));
    }
    std::string read() {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    void write(const std::string& bytes) { std::ofstream(file, std::ios::binary) << bytes; }

    OnnxRuntime::Options options;
    MireloModel::Components asked = written(sum(), {describe("x", {1, 2})}, {describe("y", {1, 2})});
    std::filesystem::path file;
};

TEST_F(OnnxRuntimeCache, IsUsedByTheNextLoadUntilSomethingChanges) {
    EXPECT_EQ(query(), CacheStatus::NotCached);
    EXPECT_EQ(use(), "1 (1,2) 11 22");
    EXPECT_THAT(sink->written, HasSubstr("is kept in"));
    EXPECT_EQ(query(), CacheStatus::Cached);
    EXPECT_EQ(use(), "1 (1,2) 11 22");
    EXPECT_THAT(sink->written, HasSubstr("Loaded from the cache"));

    options.graphOptimization = OnnxRuntime::GraphOptimization::Basic;
    EXPECT_EQ(query(), CacheStatus::Stale);
    EXPECT_EQ(use(), "1 (1,2) 11 22");
    EXPECT_EQ(query(), CacheStatus::Cached);
    folder.write("net.onnx", sum({-1, 2}, {30, 40}));
    EXPECT_EQ(query(), CacheStatus::Stale);
    EXPECT_EQ(use(), "1 (1,2) 31 42");
    EXPECT_EQ(query(), CacheStatus::Cached);
    // One file, and nothing that was left over.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.native() / "cache"), {}), 1);
    folder.write("net.onnx", "no network");
    EXPECT_EQ(query(), CacheStatus::NotCached);
}

TEST_F(OnnxRuntimeCache, RemovesWhatKilledProcessesLeft) {
    use();
    std::vector<std::filesystem::path> left;  // of this cache file, an hour old and new; and of another one
    for (const std::filesystem::path& name : {file, file, file.parent_path() / "other.network"}) {
        left.emplace_back(name.native() + std::filesystem::path("." + std::to_string(left.size()) + ".tmp").native());
        std::ofstream(left.back()) << "a part";
        const auto age = std::chrono::minutes(left.size() == 2 ? 30 : 61);
        std::filesystem::last_write_time(left.back(), std::filesystem::file_time_type::clock::now() - age);
    }
    std::filesystem::remove(file);
    use();
    EXPECT_FALSE(std::filesystem::exists(left[0]));
    EXPECT_TRUE(std::filesystem::exists(left[1]));
    EXPECT_TRUE(std::filesystem::exists(left[2]));
}

TEST_F(OnnxRuntimeCache, LooksAtWeightsInFilesOfTheirOwn) {
    const std::string bytes =
        network({node("Add", {"x", "w"}, {"y"})}, {port("x", DataType::Float, {1, 2})},
                {port("y", DataType::Float, {1, 2})}, {outside(constant("w", DataType::Float, {1, 2}), "w.bin")});
    const auto writeWeights = [&](const Floats& weights) {
        folder.write("w.bin", std::string(reinterpret_cast<const char*>(weights.data()), 8));
    };
    asked = written(bytes, {describe("x", {1, 2})}, {describe("y", {1, 2})});
    writeWeights({10, 20});
    EXPECT_EQ(use().substr(2), "(1,2) 11 22");
    EXPECT_EQ(use().substr(2), "(1,2) 11 22");
    writeWeights({30, 40});
    EXPECT_NE(query(), CacheStatus::Cached);
    EXPECT_EQ(use().substr(2), "(1,2) 31 42");
}

// Both files are replaced in the midst of a load, at another moment each round, and then put back. What the cache keeps
// for them was made of them.
TEST_F(OnnxRuntimeCache, KeepsNothingOfFilesThatWereReplacedDuringTheLoad) {
    const auto put = [&](float value) {  // y = x + value * value
        const auto replace = [&](const char* name, const std::string& bytes) {
            folder.write("new", bytes);
            std::error_code ignored;  // on Windows, the engine may have the file open
            std::filesystem::rename(folder.native() / "new", folder.native() / name, ignored);
        };
        replace("w.bin", std::string(reinterpret_cast<const char*>(Floats(2, value).data()), 8));
        replace("net.onnx", network({node("Mul", {"w", "k"}, {"v"}), node("Add", {"x", "v"}, {"y"})},
                                    {port("x", DataType::Float, {1, 2})}, {port("y", DataType::Float, {1, 2})},
                                    {outside(constant("w", DataType::Float, {1, 2}), "w.bin"),
                                     constant<float>("k", DataType::Float, {}, {value})}));
    };
    for (int round = 0; round < 60; ++round) {
        put(10);
        std::filesystem::remove_all(folder.native() / "cache");
        std::thread updater([&] {
            std::this_thread::sleep_for(std::chrono::microseconds(20 * round));
            put(20);
        });
        make(options)->load(asked);
        updater.join();
        put(10);
        EXPECT_EQ(use().substr(2), "(1,2) 101 102") << round;
    }
}

// The optimised network would lie there in the open.
TEST_F(OnnxRuntimeCache, KeepsNothingOfProtectedNetworks) {
    folder.write("protected", stringOf(protectedBytes(sum())));
    asked = components("protected", ComponentKind::SecuredFile, {describe("x", {1, 2})}, {describe("y", {1, 2})});
    std::get<ModelTarget>(asked).components[0].setCryptoKey(kTestKey);
    EXPECT_EQ(use(), "0 (1,2) 11 22");
    EXPECT_EQ(query(), CacheStatus::NotCached);
    EXPECT_FALSE(std::filesystem::exists(folder.native() / "cache"));
}

TEST_F(OnnxRuntimeCache, IsNeverUsedDamaged) {
    use();
    const std::string whole = read();
    for (size_t i = 0; i < whole.size(); i += 7) {
        std::string damaged = whole;
        damaged[i] = static_cast<char>(damaged[i] ^ 4);
        write(damaged);
        EXPECT_EQ(query(), CacheStatus::Stale) << i;
        EXPECT_EQ(use(), "1 (1,2) 11 22") << i;
        EXPECT_EQ(read(), whole) << i;  // made anew
        write(whole.substr(0, i));
        EXPECT_EQ(query(), CacheStatus::Stale) << i;
    }
    EXPECT_EQ(use(), "1 (1,2) 11 22");
}

TEST_F(OnnxRuntimeCache, NeverFailsALoad) {
    folder.write("cache", "a file in the folder's place");
    EXPECT_EQ(use(), "0 (1,2) 11 22");
    EXPECT_THAT(sink->written, HasSubstr("2 ONNX Runtime model \"m\": The cache file is not used: "));
    std::filesystem::remove(folder.native() / "cache");
    // The network's own fault is none of the cache.
    sink->written.clear();
    const std::string bad = network({node("Neg", {"gone"}, {"y"})}, {}, {});
    EXPECT_THAT(text(make(options)->load(written(bad, {}, {}))), HasSubstr("gone"));
    EXPECT_THAT(sink->written, testing::Not(HasSubstr("cache")));
    asked = written(sum(), {describe("x", {1, 2})}, {describe("y", {1, 2})});
    use();
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
    EXPECT_EQ(query(), CacheStatus::Stale);
    EXPECT_EQ(use(), "0 (1,2) 11 22");
    std::filesystem::remove(file);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 5; ++round) {
                OnnxRuntime::Options own = options;  // two kinds that want the same file
                if (round % 2 == 1) own.graphOptimization = OnnxRuntime::GraphOptimization::None;
                OnnxRuntime::Model loaded("m", MireloModelType::WinML, MireloConfig(), own);
                EXPECT_EQ(text(loaded.load(asked)), kSuccess);
                EXPECT_EQ(predict(loaded, {feature("x", {1, 2}, Floats{1, 2})}), "(1,2) 11 22");
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

// y and z: the elements of x as int64, twice each, and their number.
class Widen : public OnnxRuntime::Operator {
 public:
    std::vector<TensorDescriptor> outputs(const std::vector<TensorDescriptor>& inputs) const override {
        if (inputs.empty()) return {TensorDescriptor(TensorShape(2), DataType::Int64)};
        if (inputs[0].tensorType() == DataType::Float) throw InvalidTypeException("no bytes");
        return {TensorDescriptor(inputs[0].shape(), DataType::Int64), TensorDescriptor({}, DataType::Int64)};
    }
    MireloStatus forward(const std::vector<std::shared_ptr<const ITensor>>& inputs,
                         const std::vector<std::shared_ptr<ITensor>>& outputs) override {
        auto* const to = reinterpret_cast<int64_t*>(outputs.at(0)->buffer());
        if (inputs.empty()) to[0] = to[1] = 7;
        if (inputs.empty()) return {SUCCESS, ""};
        const int64_t count = inputs[0]->shape().size();
        for (int64_t i = 0; i < count; ++i) to[i] = int64_t{2} * inputs[0]->buffer()[i];
        if (count > 0 && to[0] == 20) return {RANGE_ERROR, "ten"};
        if (count > 0 && to[0] == 40) throw std::runtime_error("twenty");
        *reinterpret_cast<int64_t*>(outputs.at(1)->buffer()) = count;
        if (count > 0 && to[0] == 60) return {WARNING, "thirty"};
        if (count > 0 && to[0] == 80) throw 1;  // NOLINT(hicpp-exception-baseclass): what hosts may do
        return {SUCCESS, ""};
    }
};

TEST_F(OnnxRuntimeBackend, RunsTheHostsOperatorsOnAnyElements) {
    const std::string bytes = network({node("Widen", {"x"}, {"y", "z"}, "example")}, {port("x", DataType::UInt8, {-1})},
                                      {port("y", DataType::Int64, {-1}), port("z", DataType::Int64, {})});
    const Descriptors x = {describe("x", TensorShape(-1), DataType::UInt8)};
    const Descriptors y = {describe("y", TensorShape(-1), DataType::Int64), describe("z", {}, DataType::Int64)};
    CustomOperators::registerCustomOperator("example.Widen", [] { return std::make_unique<Widen>(); });
    EXPECT_THAT(load(bytes, x, y), HasSubstr("12: "));  // before the registry is finalised
    CustomOperators::finalizeOperatorRegistry();
    OnnxRuntime::Options options;
    options.cacheDirectory = folder.path("cache");
    model = make(options);
    ASSERT_EQ(load(bytes, x, y), kSuccess);
    EXPECT_FALSE(model->getCachedModelFilePath().has_value());
    const auto input = [&](const std::vector<uint8_t>& elements) {
        return feature("x", TensorShape(static_cast<int64_t>(elements.size())), elements, DataType::UInt8);
    };
    Outputs outputs;
    EXPECT_EQ(text(model->predict({input({1, 2, 200})}, outputs)), kSuccess);
    EXPECT_EQ(text(*outputs.at(0)->asTensor()) + text(*outputs.at(1)->asTensor()), "(3) 2 4 400() 3");
    EXPECT_EQ(predict({input({10})}), "14: example.Widen: ten");
    EXPECT_EQ(predict({input({20})}), "13: example.Widen: twenty");
    EXPECT_EQ(predict({input({30})}), "(1) 60");
    EXPECT_EQ(predict({input({40})}), "13: example.Widen: it raised something unknown");
    EXPECT_THAT(sink->written, HasSubstr("2 ONNX Runtime model \"m\": engine: example.Widen: thirty\n"));
    EXPECT_EQ(predict({input({})}), "(0)");
    const auto loadOn = [&](const std::vector<std::string>& inputs) {
        const std::string nodes[] = {node("Widen", inputs, {"y"}, "example"), node("Neg", {"x"}, {"z"})};
        return load(network({nodes[0], nodes[1]}, {port("x", DataType::Int64, {2})},
                            {port("y", DataType::Int64, {2}), port("z", DataType::Int64, {2})}),
                    {describe("x", TensorShape(2), DataType::Int64)}, {describe("y", TensorShape(2), DataType::Int64)});
    };
    EXPECT_EQ(loadOn({}), kSuccess);
    EXPECT_EQ(predict({feature<int64_t>("x", TensorShape(2), {1, 2}, DataType::Int64)}), "(2) 7 7");
    const std::string gap = "12: Component \"net\": example.Widen: a node leaves out an input";
    EXPECT_THAT(loadOn({"x", ""}), HasSubstr(gap));
    EXPECT_THAT(loadOn({"", "x"}), HasSubstr(gap));
    // While the network is loaded: y is an output, or goes to another node.
    for (const auto& nodes : {std::vector{node("Widen", {"x"}, {"y"}, "example")},
                              std::vector{node("Widen", {"x"}, {"w"}, "example"), node("Neg", {"w"}, {"y"})}}) {
        const std::string onFloats =
            network(nodes, {port("x", DataType::Float, {2})}, {port("y", DataType::Int64, {2})});
        EXPECT_EQ(load(onFloats, {describe("x", TensorShape(2))}, {describe("y", TensorShape(2), DataType::Int64)}),
                  R"(8: Component "net": example.Widen: no bytes)");
    }

    CustomOperators::getMutableOperatorRegistry().clear();
    CustomOperators::registerCustomOperatorPluginDLL(folder.path("there_is_no_library"));
    CustomOperators::finalizeOperatorRegistry();
    EXPECT_THAT(load(bytes, x, y), testing::AllOf(HasSubstr("13: "), HasSubstr("there_is_no_library\": ")));
    CustomOperators::getMutableOperatorRegistry().clear();
    CustomOperators::registerCustomOperatorPluginDLL(Filepath(OPERATOR_LIBRARY));
    CustomOperators::finalizeOperatorRegistry();
    const std::string negate = network({node("Negate", {"x"}, {"y"}, "example")}, {port("x", DataType::Float, {1, 2})},
                                       {port("y", DataType::Float, {1, 2})});
    EXPECT_EQ(load(negate, {describe("x", {1, 2})}, {describe("y", {1, 2})}), kSuccess);
    EXPECT_EQ(predict({feature("x", {1, 2}, Floats{1, 2})}), "(1,2) -1 -2");
    CustomOperators::getMutableOperatorRegistry().clear();
}

TEST_F(OnnxRuntimeBackend, LogsToTheSinkAlone) {
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    EXPECT_THAT(load("no network", {describe("x", {1, 2})}, {describe("y", {1, 2})}), HasSubstr("12: "));
    const std::string division = network({node("Reshape", {"x", "s"}, {"y"})},
                                         {port("x", DataType::Float, {1, 2}), port("s", DataType::Int64, {1})},
                                         {port("y", DataType::Float, {-1})});
    ASSERT_EQ(load(division, {describe("x", {1, 2}), describe("s", TensorShape(1), DataType::Int64)},
                   {describe("y", TensorShape(-1))}),
              kSuccess);
    EXPECT_THAT(sink->written, HasSubstr("1 ONNX Runtime model \"m\": Component \"net\": loaded in "));
    const auto shape = feature<int64_t>("s", TensorShape(1), {7}, DataType::Int64);
    EXPECT_THAT(predict({feature("x", {1, 2}, Floats{1, 2}), shape}), HasSubstr("13: "));
    EXPECT_THAT(sink->written, HasSubstr("\n3 ONNX Runtime model \"m\": engine: "));
    EXPECT_EQ(text(model->doUnload()), kSuccess);
    EXPECT_THAT(sink->written, HasSubstr("1 ONNX Runtime model \"m\": unloaded\n"));
    // But for this line, which the engine writes when it starts on a Windows without DirectX.
    const std::string written = testing::internal::GetCapturedStderr();
    const std::string known = "Failed to create DXGI factory.";
    EXPECT_TRUE(written.empty() || written == known + "\n" || written == known + "\r\n") << written;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

}  // namespace
}  // namespace TarnoMirelo
