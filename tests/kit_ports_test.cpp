// The kit: features matched to the inputs and outputs of a target.

#include "support/kit_features.h"
#include "support/text.h"

#include <TarnoMirelo/kit/ports.h>

#include <gtest/gtest.h>

#include <functional>
#include <limits>

using namespace TarnoMirelo;
using namespace TarnoMirelo::Kit;

namespace {

constexpr int64_t kHuge = std::numeric_limits<int64_t>::max();
const std::string kLongName(40, 'n');

class DeviceMemory : public DeviceTensor {
 public:
    DeviceMemory() : DeviceTensor(DataType::Float, TensorShape(1, 2), false) {}
    const uint8_t* buffer() const override { return nullptr; }
    uint8_t* buffer() override { return nullptr; }
    MireloStatus copyFromHost(const uint8_t* /*source*/, uint64_t /*size*/) override { return {SUCCESS, ""}; }
    MireloStatus copyToHost(uint8_t* /*destination*/, uint64_t /*size*/) const override { return {SUCCESS, ""}; }
    void* nativeHandle() const override { return nullptr; }
};

// A host's own tensor, which says whatever it likes.
class AnyTensor : public Tensor {
 public:
    explicit AnyTensor(TensorShape shape) : Tensor(DataType::Float, TensorShape(1)), shape_(std::move(shape)) {}
    const TensorShape& shape() const override { return shape_; }

 private:
    TensorShape shape_;
};

std::shared_ptr<MireloFeature> wrapped(const std::string& name, float* elements) {
    return TarnoMirelo::wrapped(name, elements, {1, 2});
}

ModelTarget portsTarget() {
    ModelTarget result;
    result.inputs = {port("x", DataType::Float, {1, 2}), port(kLongName, DataType::Int64, {-1, 3}),
                     port("scalar", DataType::Bool, {}), port("mask", DataType::Float, {1, 2}, false)};
    result.outputs = {port("y", DataType::Float, {1, 2}), port("z", DataType::Float, {-1, 2})};
    return result;
}

MireloModel::Outputs goodInputs() {
    return {feature("x", DataType::Float, 1, 2), feature(kLongName, DataType::Int64, 5, 3),
            feature("scalar", std::make_shared<Tensor>(DataType::Bool, TensorShape()))};
}

MireloModel::Inputs asInputs(const MireloModel::Outputs& features) { return {features.begin(), features.end()}; }

// Both ways to check say the same.
std::string checked(const MireloModel::Inputs& inputs) {
    const std::string said = text(checkInputs(portsTarget(), inputs));
    EXPECT_EQ(text(InputPorts(portsTarget()).check(inputs)), said);
    return said;
}

}  // namespace

TEST(KitPorts, TakeGoodInputsInAnyOrder) {
    MireloModel::Outputs inputs = goodInputs();
    EXPECT_EQ(checked(asInputs(inputs)), kSuccess);
    std::swap(inputs[0], inputs[2]);
    inputs.push_back(feature("mask", DataType::Float, 1, 2));
    std::swap(inputs[1], inputs[3]);
    EXPECT_EQ(checked(asInputs(inputs)), kSuccess);
    inputs[3] = feature(kLongName, DataType::Int64, 0, 3);  // no rows is a number of rows, too
    EXPECT_EQ(checked(asInputs(inputs)), kSuccess);

    InputTensors tensors;
    EXPECT_EQ(text(InputPorts(portsTarget()).arrange(asInputs(inputs), 1, tensors)), kSuccess);
    ASSERT_EQ(tensors.size(), 4U);
    EXPECT_EQ(tensors[0], inputs[2]->asTensor());
    EXPECT_EQ(tensors[1], inputs[3]->asTensor());
    inputs.erase(inputs.begin() + 1);
    EXPECT_EQ(text(InputPorts(portsTarget()).arrange(asInputs(inputs), 1, tensors)), kSuccess);
    EXPECT_EQ(tensors[3], nullptr);
}

TEST(KitPorts, SayWhatIsWrongWithAnInput) {
    const std::string n = "Input \"" + kLongName + "\": ";
    float memory[3] = {};
    uint8_t* const odd = reinterpret_cast<uint8_t*>(memory) + 1;
    const struct {
        size_t index;
        std::shared_ptr<MireloFeature> feature;
        std::string says;
    } cases[] = {
        {0, nullptr, "7: Input: the feature at index 0 is null"},
        {0, feature("w", DataType::Float, 1, 2),
         R"(7: Input "w": the target has none of that name, but "x", ")" + kLongName + R"(", "scalar", "mask")"},
        {2, feature("x", DataType::Float, 1, 2), "7: Input \"x\": given twice"},
        {1, feature("mask", DataType::Float, 1, 2), "7: " + n + "missing"},
        {0,
         std::make_shared<MireloFeatureInt64>(
             ModelFeatureDescriptor(MireloFeatureType::Int64, true, "x", "", TensorDescriptor())),
         "8: Input \"x\": the feature's type is int64, wanted is tensor"},
        {0, feature("x", nullptr), "7: Input \"x\": the feature holds no tensor"},
        {0, feature("x", std::make_shared<DeviceMemory>()),
         "8: Input \"x\": the tensor is on a device, wanted is one in host memory"},
        {1, feature(kLongName, DataType::Float, 5, 3), "9: " + n + "the element type is float, wanted is int64"},
        {0, feature("x", DataType::Float, 2, 2), "17: Input \"x\": the shape is (2, 2), wanted is (1, 2)"},
        {0, feature("x", DataType::Float, 2), "17: Input \"x\": the shape is (2), wanted is (1, 2)"},
        {1, feature(kLongName, std::make_shared<VariableTensor>(DataType::Int64, TensorShape(-1, 3))),
         "17: " + n + "the shape is (-1, 3), wanted is (-1, 3) with any number from 0 for -1"},
        {2, feature("scalar", DataType::Bool, 1), "17: Input \"scalar\": the shape is (1), wanted is ()"},
        {0, feature("x", std::make_shared<BufferWrappedTensor>(DataType::Float, TensorShape(1, 2), nullptr, 0)),
         "7: Input \"x\": the tensor has no buffer"},
        {0, feature("x", std::make_shared<BufferWrappedTensor>(DataType::Float, TensorShape(1, 2), odd, 8)),
         "7: Input \"x\": the buffer's address is no multiple of 4, wanted for elements of type float"},
    };
    for (const auto& each : cases) {
        MireloModel::Outputs inputs = goodInputs();
        inputs[each.index] = each.feature;
        EXPECT_EQ(checked(asInputs(inputs)), each.says);
        InputTensors tensors(1);
        InputPorts(portsTarget()).arrange(asInputs(inputs), 1, tensors);
        EXPECT_EQ(tensors.size(), 1U);
    }
    EXPECT_EQ(checked({}), "7: Input \"x\": missing");
}

TEST(KitPorts, CountNoElementsBeyond63Bits) {
    ModelTarget huge;
    huge.inputs = {port("x", DataType::Float, {-1, -1})};
    const auto check = [&](const TensorShape& shape) {
        return text(checkInputs(huge, {feature("x", std::make_shared<AnyTensor>(shape))}));
    };
    EXPECT_EQ(check({kHuge / 4, 1}), kSuccess);
    EXPECT_EQ(check({kHuge / 4 + 1, 1}),
              "17: Input \"x\": the shape (2305843009213693952, 1) has more elements than can "
              "be counted in 63 bits");
    EXPECT_EQ(check({kHuge, kHuge}).substr(0, 2), "17");
    EXPECT_EQ(byteCount(DataType::Double, {kHuge, 2, 0}), 0);
    EXPECT_EQ(byteCount(DataType::Double, {-1}), std::nullopt);
    EXPECT_EQ(byteCount(DataType::Double, {}), 8);
}

TEST(KitPorts, TakeWhatTheManifestLeavesOpen) {
    ModelTarget open = portsTarget();
    open.inputs = {port("x", DataType::Undefined, {1, 2}),
                   ModelFeatureDescriptor(MireloFeatureType::String, true, "s", "", TensorDescriptor())};
    const auto words = std::make_shared<MireloFeatureString>(open.inputs[1], "words");
    EXPECT_EQ(text(checkInputs(open, {feature("x", DataType::Int8, 1, 2), words})), kSuccess);
    EXPECT_EQ(text(checkInputs(open, {feature("x", DataType::Undefined, 1, 2), words})),
              "9: Input \"x\": the element type is undefined, wanted is another");
    EXPECT_EQ(text(checkInputs(open, {feature("x", DataType::Int8, 1, 2), feature("s", DataType::Int8, 1)})),
              "8: Input \"s\": the feature's type is tensor, wanted is string");
    const InputPorts any(portsTarget(), ElementTypes::Any);
    MireloModel::Outputs inputs = goodInputs();
    inputs[0] = feature("x", DataType::Int8, 1, 2);
    EXPECT_EQ(text(any.check(asInputs(inputs))), kSuccess);
}

TEST(KitPorts, ExpectAsManyRowsAsTheyAreTold) {
    ModelTarget rows;
    rows.inputs = {port("x", DataType::Float, {1, 2})};
    const InputPorts ports(rows);
    EXPECT_EQ(ports[0].shapeOf(3), TensorShape(3, 2));
    EXPECT_EQ(text(ports.check({feature("x", DataType::Float, 3, 2)}, 3)), kSuccess);
    EXPECT_EQ(text(ports.check({feature("x", DataType::Float, 1, 2)}, 3)),
              "17: Input \"x\": the shape is (1, 2), wanted is (3, 2)");
}

TEST(KitPorts, RefuseTargetsThatNoCheckCouldServe) {
    ModelTarget none;
    EXPECT_EQ(raised([&] { InputPorts{none}; }), "12: Input: the target has none");
    ModelTarget twice = portsTarget();
    twice.outputs.push_back(twice.outputs[0]);
    EXPECT_EQ(raised([&] { OutputPorts{twice}; }), "12: Output \"y\": the target has two of that name");
    twice.outputs[0] = ModelFeatureDescriptor(MireloFeatureType::Int32, true, "n", "", TensorDescriptor());
    EXPECT_EQ(raised([&] { OutputPorts{twice}; }), "12: Output \"n\": the type is int32, wanted is tensor");
}

TEST(KitPorts, MatchManyInputsInLinearTime) {
    ModelTarget many;
    MireloModel::Inputs inputs;
    constexpr int kCount = 20000;
    for (int i = 0; i < kCount; ++i) many.inputs.push_back(port(std::to_string(i), DataType::Int8, {1}));
    for (int i = kCount; i-- > 0;) inputs.push_back(feature(std::to_string(i), DataType::Int8, 1));
    EXPECT_EQ(text(checkInputs(many, inputs)), kSuccess);
    inputs.back() = inputs.front();
    EXPECT_EQ(text(checkInputs(many, inputs)), "7: Input \"19999\": given twice");
}

TEST(KitPorts, CheckOutputsAndTheirMemory) {
    float memory[8] = {};
    const auto bare = [](const char* name) { return feature(name, std::make_shared<Tensor>(DataType::Float)); };
    const auto variable = [](const TensorShape& shape) {
        return feature("z", std::make_shared<VariableTensor>(DataType::Float, shape));
    };
    const std::shared_ptr<MireloFeature> y = bare("y");
    const auto sameTensor = feature("z", y->asTensor());
    const struct {
        MireloModel::Outputs outputs;
        std::string says;
    } cases[] = {
        {{}, kSuccess},
        {{feature("z", DataType::Float, 7, 2)}, kSuccess},
        {{variable({-1, -1}), bare("y")}, kSuccess},
        {{wrapped("y", memory), wrapped("z", memory + 2)}, kSuccess},
        {{variable({-1})}, "17: Output \"z\": the shape is (-1), wanted is (-1, 2) with any number from 0 for -1"},
        {{feature("z", DataType::Float, 7, 3)},
         "17: Output \"z\": the shape is (7, 3), wanted is (-1, 2) with any number from 0 for -1"},
        {{feature("y", DataType::Double, 1, 2)}, "9: Output \"y\": the element type is double, wanted is float"},
        {{feature("x", DataType::Float, 1, 2)}, R"(7: Output "x": the target has none of that name, but "y", "z")"},
        {{wrapped("y", memory), wrapped("z", memory + 1)},
         R"(7: Output "z": the tensor shares its memory with output "y", wanted is memory of its own)"},
        {{y, sameTensor}, "7: shares"},
        {{wrapped("y", memory + 5)},
         R"(7: Output "y": the tensor shares its memory with input "x", wanted is memory of its own)"},
    };
    MireloModel::Outputs given = goodInputs();
    given[0] = wrapped("x", memory + 6);
    const InputPorts inputPorts(portsTarget());
    const OutputPorts outputPorts(portsTarget());
    InputTensors inputs;
    ASSERT_EQ(text(inputPorts.arrange(asInputs(given), 1, inputs)), kSuccess);
    for (const auto& each : cases) {
        const MireloStatus status = checkOutputs(portsTarget(), asInputs(given), each.outputs);
        OutputTensors tensors;
        EXPECT_EQ(text(outputPorts.arrange(inputPorts, inputs, each.outputs, 1, tensors)), text(status));
        EXPECT_EQ(tensors.size(), status.ok() ? 2U : 0U);
        if (each.says == "7: shares") {
            EXPECT_NE(text(status).find("shares its memory"), std::string::npos);
        } else {
            EXPECT_EQ(text(status), each.says);
        }
    }
}

TEST(KitPorts, SeeWhatHasMoved) {
    const auto fixed = std::make_shared<Tensor>(DataType::Float, TensorShape(1, 2));
    const auto variable = std::make_shared<VariableTensor>(DataType::Float, TensorShape(-1, 2));
    ASSERT_TRUE(variable->allocateShape({4, 2}).ok());
    BoundTensors bound;
    bound.add(fixed);
    bound.add(nullptr);
    bound.add(variable);
    EXPECT_TRUE(bound.areInPlace());
    ASSERT_TRUE(variable->allocateShape({3, 2}).ok());
    EXPECT_FALSE(bound.areInPlace());
    ASSERT_TRUE(variable->allocateShape({4, 2}).ok());
    EXPECT_TRUE(bound.areInPlace());
    ASSERT_TRUE(fixed->resize(TensorShape(2)).ok());
    EXPECT_FALSE(bound.areInPlace());
}
