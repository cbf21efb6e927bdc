#include "support/status_text.h"
#include "support/temp_dir.h"

#include <TarnoMirelo/TarnoMirelo.h>
#include <TarnoMirelo/opencv.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <numeric>

namespace TarnoMirelo {
namespace {

using Floats = std::vector<float>;

ModelFeatureDescriptor port(const std::string& name, const TensorShape& shape, DataType type = DataType::Float) {
    return {MireloFeatureType::Tensor, true, name, "", TensorDescriptor(shape, type)};
}

/// A target of one network from the folder of test models.
ModelTarget targetOf(const std::string& network, const std::vector<ModelFeatureDescriptor>& inputs,
                     const std::vector<ModelFeatureDescriptor>& outputs) {
    ModelTarget target;
    target.modelType = MireloModelType::WinML;
    target.components.resize(1);
    target.components[0].name = "net";
    target.components[0].path = network;
    target.components[0].type = ComponentKind::File;
    target.inputs = inputs;
    target.outputs = outputs;
    return target;
}

ModelTarget sumTarget() {
    return targetOf("sum.onnx", {port("a", {1, 3}), port("b", {1, 3})}, {port("y", {1, 3})});
}

MireloStatus loadInto(MireloModel& model, const ModelTarget& target) {
    return model.load({MireloModelType::WinML, target, Filepath(TEST_MODELS)});
}

std::shared_ptr<OpenCv::Model> loaded(const ModelTarget& target) {
    auto model = std::make_shared<OpenCv::Model>("m", MireloModelType::WinML);
    EXPECT_EQ(text(loadInto(*model, target)), kSuccess);
    return model;
}

template <typename Element = float>
std::shared_ptr<MireloFeatureTensor> feature(const std::string& name, const TensorShape& shape,
                                             const std::vector<Element>& values, DataType type = DataType::Float) {
    auto tensor = std::make_shared<Tensor>(type, shape);
    const auto* const bytes = reinterpret_cast<const uint8_t*>(values.data());
    std::copy(bytes, bytes + values.size() * sizeof(Element), tensor->buffer());
    return std::make_shared<MireloFeatureTensor>(port(name, shape), std::move(tensor));
}

Floats valuesOf(const std::shared_ptr<MireloFeature>& feature) {
    const auto tensor = feature->asTensor();
    const auto* const first = reinterpret_cast<const float*>(tensor->buffer());
    return {first, first + tensor->shape().size()};
}

class OpenCvSum : public testing::Test {
 protected:
    std::shared_ptr<OpenCv::Model> model = loaded(sumTarget());
    std::shared_ptr<MireloFeatureTensor> a = feature("a", {1, 3}, Floats{1, 2, 3});
    std::shared_ptr<MireloFeatureTensor> b = feature("b", {1, 3}, Floats{10, -20, 30});
    MireloModel::Outputs outputs;

    std::string predict(const MireloModel::Inputs& inputs) { return text(model->predict(inputs, outputs)); }
};

const Floats kSum = {11, 0, 33};

TEST_F(OpenCvSum, FillsAnEmptyListAndWritesIntoAGivenOne) {
    EXPECT_EQ(predict({a, b}), kSuccess);
    ASSERT_EQ(outputs.size(), 1U);
    EXPECT_EQ(outputs[0]->featureDescriptor().name(), "y");
    EXPECT_EQ(outputs[0]->asTensor()->shape(), TensorShape(1, 3));
    EXPECT_EQ(valuesOf(outputs[0]), kSum);
    const auto first = outputs[0];
    std::memset(first->asTensor()->buffer(), 0, 12);
    EXPECT_EQ(predict({b, a}), kSuccess);  // order does not matter
    EXPECT_EQ(outputs, MireloModel::Outputs{first});
    EXPECT_EQ(valuesOf(first), kSum);

    // Tensors that are still to get their shape or buffer.
    outputs = {std::make_shared<MireloFeatureTensor>(port("y", {-1, -1}))};
    EXPECT_EQ(predict({a, b}), kSuccess);
    EXPECT_EQ(valuesOf(outputs[0]), kSum);
    outputs = {std::make_shared<MireloFeatureTensor>(port("y", {}), std::make_shared<Tensor>(DataType::Float))};
    EXPECT_EQ(predict({a, b}), kSuccess);
    EXPECT_EQ(valuesOf(outputs[0]), kSum);
}

TEST_F(OpenCvSum, NamesTheInputThatDoesNotFit) {
    class OnDevice : public Tensor {
     public:
        using Tensor::Tensor;
        bool onDevice() const override { return true; }
    };
    const auto holding = [](const std::string& name, std::shared_ptr<ITensor> tensor) {
        return std::make_shared<MireloFeatureTensor>(port(name, {1, 3}), std::move(tensor));
    };
    const std::pair<MireloModel::Inputs, const char*> cases[] = {
        {{a}, R"(7: Input "b": missing)"},
        {{}, R"(7: Input "a": missing)"},
        {{a, b, feature("c", {1, 3}, Floats{})}, R"(7: Input "c": the target has none of that name)"},
        {{a, b, a}, R"(7: Input "a": given twice)"},
        {{a, nullptr}, "7: Input: a feature must not be null"},
        {{a, holding("b", nullptr)}, R"(7: Input "b": the feature holds no tensor)"},
        {{a, holding("b", std::make_shared<BufferWrappedTensor>(DataType::Float, TensorShape(1, 3), nullptr, 0))},
         R"(7: Input "b": the tensor has no buffer)"},
        {{a, std::make_shared<MireloFeatureInt32>(port("b", {1, 3}))}, R"(8: Input "b": the feature is no tensor)"},
        {{a, holding("b", std::make_shared<OnDevice>(DataType::Float, TensorShape(1, 3)))},
         R"(8: Input "b": the tensor is not in host memory)"},
        {{a, feature("b", {1, 4}, Floats{})}, R"(17: Input "b": the shape is (1, 4), wanted is (1, 3))"},
        {{a, feature("b", {2, 3}, Floats{})}, R"(17: Input "b": the shape is (2, 3), wanted is (1, 3))"},
        {{a, feature("b", TensorShape(3), Floats{})}, R"(17: Input "b": the shape is (3), wanted is (1, 3))"},
        {{a, holding("b", std::make_shared<VariableTensor>(DataType::Float, TensorShape(1, -1)))},
         R"(17: Input "b": the shape is (1, -1), wanted is (1, 3))"}};
    for (const auto& [inputs, expected] : cases) {
        EXPECT_EQ(predict(inputs), expected);
        EXPECT_TRUE(outputs.empty());
    }
    EXPECT_EQ(predict({a, b}), kSuccess);  // nothing has stuck
}

TEST_F(OpenCvSum, NamesTheOutputThatDoesNotFit) {
    const std::pair<std::shared_ptr<MireloFeature>, const char*> cases[] = {
        {nullptr, "7: Output: a feature must not be null"},
        {feature("z", {1, 3}, Floats{}), R"(7: Output "z": the target has none of that name)"},
        {std::make_shared<MireloFeatureBool>(port("y", {})), R"(8: Output "y": the feature is no tensor)"},
        {feature("y", {1, 3}, Floats{}, DataType::Int32),
         R"(9: Output "y": the engine computes elements of type float only)"},
        {feature("y", {3, 1}, Floats{}), R"(17: Output "y": the shape is (3, 1), wanted is (1, 3))"},
        {std::make_shared<MireloFeatureTensor>(port("y", TensorShape(-1))),
         R"(17: Output "y": the shape is (-1), wanted is (1, 3))"}};
    for (const auto& [output, expected] : cases) {
        outputs = {output};
        EXPECT_EQ(predict({a, b}), expected);
        EXPECT_EQ(outputs, MireloModel::Outputs{output});
    }
}

// The same numbers in every element type: those that the engine takes give the same result.
TEST_F(OpenCvSum, TakesTheElementTypesOfTheEngine) {
    const std::pair<DataType, std::function<std::shared_ptr<MireloFeature>(DataType)>> taken[] = {
        {DataType::UInt8,
         [](DataType t) {
             return feature<uint8_t>("a", {1, 3}, {1, 2, 3}, t);
         }},
        {DataType::Int8,
         [](DataType t) {
             return feature<int8_t>("a", {1, 3}, {1, 2, 3}, t);
         }},
        {DataType::UInt16,
         [](DataType t) {
             return feature<uint16_t>("a", {1, 3}, {1, 2, 3}, t);
         }},
        {DataType::Int16,
         [](DataType t) {
             return feature<int16_t>("a", {1, 3}, {1, 2, 3}, t);
         }},
        {DataType::Int32,
         [](DataType t) {
             return feature<int32_t>("a", {1, 3}, {1, 2, 3}, t);
         }},
        {DataType::Float16,
         [](DataType t) {
             return feature<uint16_t>("a", {1, 3}, {0x3C00, 0x4000, 0x4200}, t);
         }},
        {DataType::Double, [](DataType t) {
             return feature<double>("a", {1, 3}, {1, 2, 3}, t);
         }}};
    for (const auto& [type, make] : taken) {
        outputs.clear();
        EXPECT_EQ(predict({make(type), b}), kSuccess);
        EXPECT_EQ(valuesOf(outputs.at(0)), kSum) << static_cast<int>(type);
    }
    outputs.clear();
    for (const DataType type :
         {DataType::Bool, DataType::UInt32, DataType::Int64, DataType::UInt64, DataType::Undefined}) {
        EXPECT_EQ(predict({feature("a", {1, 3}, Floats{}, type), b}),
                  R"(9: Input "a": the engine doesn't take elements of that type)");
    }
}

TEST_F(OpenCvSum, PredictsABatchRowByRow) {
    MireloModel::Inputs inputs;
    for (int row = 0; row < 4; ++row) {
        inputs.push_back(feature("a", {1, 3}, Floats{0, 1, 2}));
        inputs.push_back(feature("b", {1, 3}, Floats(3, static_cast<float>(row))));
    }
    const auto check = [&] {
        ASSERT_EQ(outputs.size(), 4U);
        for (size_t row = 0; row < 4; ++row) {
            const auto add = static_cast<float>(row);
            EXPECT_EQ(outputs[row]->asTensor()->shape(), TensorShape(1, 3));
            EXPECT_EQ(valuesOf(outputs[row]), (Floats{add, add + 1, add + 2}));
        }
    };
    const MireloStatus status = model->predictBatch(inputs, outputs);
    EXPECT_EQ(text(status), kSuccess);
    EXPECT_TRUE(status.getPropertyMap().empty());
    check();
    const MireloModel::Outputs given = outputs;
    for (const auto& output : given)
        std::memset(output->asTensor()->buffer(), 0, 12);
    EXPECT_EQ(text(model->predictBatch(inputs, outputs)), kSuccess);
    EXPECT_EQ(outputs, given);
    check();

    // Rows of different element types can't go through together.
    outputs.clear();
    inputs[2] = feature<double>("a", {1, 3}, {0, 1, 2}, DataType::Double);
    EXPECT_EQ(text(model->predictBatch(inputs, outputs)), kSuccess);
    check();

    outputs.pop_back();
    EXPECT_EQ(text(model->predictBatch(inputs, outputs)), R"(7: Output "y": 3 features for 4 rows of inputs)");
    outputs.clear();
    inputs.pop_back();
    EXPECT_EQ(text(model->predictBatch(inputs, outputs)), "8: An uneven number of batches per input");
    EXPECT_EQ(text(model->predictBatch({a, a}, outputs)), R"(7: Input "b": missing)");
    EXPECT_EQ(text(model->predictBatch({}, outputs)), "7: Input: a batch has at least one row");
    EXPECT_EQ(text(model->predictBatch({a, b, a, feature("b", {1, 2}, Floats{})}, outputs)),
              R"(17: Input "b": the shape is (1, 2), wanted is (1, 3))");
    EXPECT_TRUE(outputs.empty());
}

TEST_F(OpenCvSum, TakesTheRowsOfABatchInOneTensor) {
    EXPECT_EQ(text(model->setBatchSize(2)), kSuccess);
    const auto two = feature("a", {2, 3}, Floats{1, 2, 3, 4, 5, 6});
    EXPECT_EQ(predict({two, feature("b", {2, 3}, Floats(6, 1.0F))}), kSuccess);
    EXPECT_EQ(outputs.at(0)->asTensor()->shape(), TensorShape(2, 3));
    EXPECT_EQ(valuesOf(outputs[0]), (Floats{2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(predict({a, b}), R"(17: Input "a": the shape is (1, 3), wanted is (2, 3))");
    EXPECT_EQ(text(model->setBatchSize(0)), "7: A batch can't have 0 rows");
    EXPECT_EQ(text(model->setBatchSize(4'000'000'000U)), "7: A batch can't have 4000000000 rows");
    EXPECT_EQ(text(model->setBatchSize(1)), kSuccess);
    outputs.clear();
    EXPECT_EQ(predict({a, b}), kSuccess);
}

TEST_F(OpenCvSum, EvaluatesWhatIsBoundAsOftenAsWanted) {
    std::shared_ptr<MireloModel::MireloBinding> binding;
    EXPECT_EQ(text(model->bind({a}, outputs, binding)), R"(7: Input "b": missing)");
    EXPECT_EQ(binding, nullptr);
    EXPECT_EQ(text(model->bind({a, b}, outputs, binding)), kSuccess);
    for (float value = 1; value < 4; ++value) {
        std::fill_n(reinterpret_cast<float*>(a->asTensor()->buffer()), 3, value);
        const MireloStatus status = model->evaluate(binding);
        EXPECT_EQ(text(status), kSuccess);
        EXPECT_EQ(status.getProperty("mireloondevice.method"), "PREDICT");
        EXPECT_EQ(valuesOf(outputs.at(0)), (Floats{10 + value, 0, 30 + value}));
    }
    a->asTensor()->resize({3, 1});
    EXPECT_EQ(text(model->evaluate(binding)), "6: A bound tensor has got another buffer or shape; bind again");
    a->asTensor()->resize({1, 3});
    EXPECT_EQ(text(model->evaluate(binding)), kSuccess);

    const std::string stranger = "6: The binding was not made by this model since it was loaded";
    EXPECT_EQ(text(loaded(sumTarget())->evaluate(binding)), stranger);
    loadInto(*model, sumTarget());
    EXPECT_EQ(text(model->evaluate(binding)), stranger);
    binding = std::make_shared<MireloModel::MireloBinding>();
    EXPECT_EQ(text(model->evaluate(binding)), stranger);
    binding.reset();
    EXPECT_EQ(text(model->evaluate(binding)), stranger);
}

TEST(OpenCv, ReturnsEachOfSeveralResults) {
    const auto model = loaded(targetOf("two_results.onnx", {port("x", {1, 1, 2, 2})},
                                       {port("squashed", {1, 1, 2, 2}), port("positive", {1, 1, 2, 2})}));
    const auto x = feature("x", {1, 1, 2, 2}, Floats{-1, 0, 1, 2});
    MireloModel::Outputs outputs;
    EXPECT_EQ(text(model->predict({x}, outputs)), kSuccess);
    ASSERT_EQ(outputs.size(), 2U);
    EXPECT_NEAR(valuesOf(outputs[0])[0], 0.268941F, 1e-6);
    EXPECT_EQ(valuesOf(outputs[1]), (Floats{0, 0, 1, 2}));
    outputs.erase(outputs.begin());  // one of them is enough
    std::memset(outputs[0]->asTensor()->buffer(), 0, 16);
    EXPECT_EQ(text(model->predict({x}, outputs)), kSuccess);
    EXPECT_EQ(valuesOf(outputs[0]), (Floats{0, 0, 1, 2}));
    outputs.clear();
    EXPECT_EQ(text(model->predictBatch({x, x}, outputs)), kSuccess);
    ASSERT_EQ(outputs.size(), 4U);
    EXPECT_EQ(outputs[2]->featureDescriptor().name(), "squashed");
    EXPECT_EQ(valuesOf(outputs[3]), (Floats{0, 0, 1, 2}));
}

TEST(OpenCv, RunsRowsOneByOneWhereTheNetworkHoldsAShape) {
    const auto model = loaded(targetOf("one_row.onnx", {port("x", {1, 4})}, {port("y", {1, 2, 2})}));
    EXPECT_EQ(text(model->setBatchSize(2)), "6: The model has no batch dimension");
    MireloModel::Outputs outputs;
    EXPECT_EQ(text(model->predictBatch(
                  {feature("x", {1, 4}, Floats{1, 2, 3, 4}), feature("x", {1, 4}, Floats{5, 6, 7, 8})}, outputs)),
              kSuccess);
    ASSERT_EQ(outputs.size(), 2U);
    EXPECT_EQ(outputs[1]->asTensor()->shape(), TensorShape(1, 2, 2));
    EXPECT_EQ(valuesOf(outputs[1]), (Floats{5, 6, 7, 8}));
}

TEST(OpenCv, TakesEveryShapeThatAManifestLeavesOpen) {
    const auto model = loaded(targetOf("sum.onnx", {port("a", {-1, -1}), port("b", {-1, -1})}, {port("y", {-1, -1})}));
    for (const TensorShape& shape : {TensorShape(1, 3), TensorShape(2, 5), TensorShape(1, 1)}) {
        const Floats values(static_cast<size_t>(shape.size()), 1.5F);
        MireloModel::Outputs outputs;
        EXPECT_EQ(text(model->predict({feature("a", shape, values), feature("b", shape, values)}, outputs)), kSuccess);
        EXPECT_EQ(outputs.at(0)->asTensor()->shape(), shape);
        EXPECT_EQ(valuesOf(outputs[0]), Floats(values.size(), 3));
    }
    MireloModel::Outputs outputs;
    EXPECT_EQ(model->predict({feature("a", {1, 0}, Floats{}), feature("b", {1, 0}, Floats{})}, outputs).getCode(),
              INVALID_SHAPE);
    EXPECT_EQ(model->predict({feature("a", {1, 3}, Floats{}), feature("b", {1, 4}, Floats{})}, outputs).getCode(),
              ML_FRAMEWORK_ERROR);
    EXPECT_TRUE(outputs.empty());
}

TEST(OpenCv, SaysWhichComponentItCannotLoadAndWhy) {
    const std::vector<std::pair<std::function<void(ModelTarget&)>, std::string>> cases = {
        {[](ModelTarget& t) { t.components[0].type = ComponentKind::SecuredTar; },
         R"(12: Component "net": components of the kind "secured_tar" can't be run)"},
        {[](ModelTarget& t) { t.components[0].path = "missing.onnx"; },
         std::string(R"(3: Component "net": cannot open )") + TEST_MODELS + "\\missing.onnx"},
        {[](ModelTarget& t) { t.components[0].path = "../models/sum.onnx"; },
         R"(12: Component "net": the path "../models/sum.onnx" names no file of the model)"},
        {[](ModelTarget& t) { t.components[0].path = "a\\..\\..\\b"; },
         R"(12: Component "net": the path "a\..\..\b" names no file of the model)"},
        {[](ModelTarget& t) { t.components[0].path = "/etc/passwd"; },
         R"(12: Component "net": the path "/etc/passwd" names no file of the model)"},
        {[](ModelTarget& t) { t.components[0].path = ""; },
         R"(12: Component "net": the path "" names no file of the model)"},
        {[](ModelTarget& t) {
             t.components.push_back(t.components[0]);
             t.components[1].name = "more";
         },
         R"(12: Component "more": a target has one component, a network)"},
        {[](ModelTarget& t) {
             t.inputs[1] = port("c", {1, 3});
         },
         R"(12: Input "c": the network has none of that name)"},
        {[](ModelTarget& t) {
             t.inputs[1] = port("a", {1, 3});
         },
         R"(12: Input "a": the target has two of that name)"},
        {[](ModelTarget& t) { t.inputs[1] = ModelFeatureDescriptor(); }, R"(12: Input "": not a tensor)"},
        {[](ModelTarget& t) {
             t.inputs[1] = port("b", {1, 0});
         },
         R"(12: Input "b": the engine can't take that shape)"},
        {[](ModelTarget& t) {
             t.outputs[0] = port("ab", {1, 3});
         },
         R"(12: Output "ab": the network has none of that name)"},
        {[](ModelTarget& t) {
             t.outputs[0] = port("y", {1, 4});
         },
         R"(12: Output "y": the network gives the shape (1, 3), declared is (1, 4))"},
        {[](ModelTarget& t) {
             t.outputs[0] = port("y", {1, 3}, DataType::Int8);
         },
         R"(12: Output "y": the engine computes elements of type float only)"}};
    OpenCv::Model model("m", MireloModelType::WinML);
    MireloModel::Outputs outputs;
    for (const auto& [damage, expected] : cases) {
        EXPECT_EQ(text(loadInto(model, sumTarget())), kSuccess);
        ModelTarget target = sumTarget();
        damage(target);
        const MireloStatus status = loadInto(model, target);
        EXPECT_EQ(text(status), expected);
        EXPECT_EQ(status.getPropertyMap().size(), 6U);
        EXPECT_EQ(text(model.predict({}, outputs)), "6: The model is not loaded");  // not the network of before
    }
}

TEST(OpenCv, ReadsNetworksFromMemoryAndRefusesThoseThatAreCut) {
    ModelTarget target = sumTarget();
    target.components[0].type = ComponentKind::MemoryStream;
    const auto whole = FileUtils().readBinaryFileToByteVector(Filepath(TEST_MODELS).append(Filepath("sum.onnx")));
    OpenCv::Model model("m", MireloModelType::WinML);
    for (size_t size = 0; size < whole.size(); ++size) {
        target.components[0].buffer.assign(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_EQ(text(loadInto(model, target)).rfind(R"(13: Component "net": OpenCV)", 0), 0U) << size;
    }
    target.components[0].buffer = whole;
    EXPECT_EQ(text(loadInto(model, target)), kSuccess);
}

TEST(OpenCv, IsOfUseOnlyWhileLoaded) {
    OpenCv::Model model("m", MireloModelType::WinML);
    const std::string expected = "6: The model is not loaded";
    MireloModel::Outputs outputs;
    std::shared_ptr<MireloModel::MireloBinding> binding;
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(text(model.predict({}, outputs)), expected);
        EXPECT_EQ(text(model.predictBatch({}, outputs)), expected);
        EXPECT_EQ(text(model.bind({}, outputs, binding)), expected);
        EXPECT_EQ(text(model.setBatchSize(1)), expected);
        EXPECT_EQ(text(model.doUnload()), kSuccess);
        EXPECT_EQ(text(loadInto(model, sumTarget())), kSuccess);
        EXPECT_EQ(text(model.doUnload()), kSuccess);
    }
}

TEST(OpenCv, ReportsItsMemoryAsSoonAsItHasARecord) {
    const auto bytes = [](ModelManager& manager) { return manager.getRuntimeStatus().getTotalMemoryConsumption(); };
    const Filepath root(DIGITS_MODEL);
    ModelMetadata metadata;
    EXPECT_EQ(text(metadata.load(Filepath(root).append(Filepath("manifest.json")))), kSuccess);
    const auto model = std::make_shared<OpenCv::Model>("m", MireloModelType::WinML);
    EXPECT_EQ(text(model->load(metadata.getModelCompoents(MireloModelType::WinML))), kSuccess);
    ModelManager manager;
    manager.registerModel(model);
    EXPECT_EQ(bytes(manager), 0U);
    MireloModel::Outputs inputs;
    MireloModel::Outputs outputs;
    EXPECT_EQ(text(model->allocateInputs(inputs)), kSuccess);
    EXPECT_EQ(text(model->predict({inputs.begin(), inputs.end()}, outputs)), kSuccess);
    const uint64_t weights = 4 * (64 * 64 + 64 + 64 * 10 + 10);
    const uint64_t one = bytes(manager);
    EXPECT_GT(one, weights);
    EXPECT_LT(one, 2 * weights);
    EXPECT_EQ(text(model->setBatchSize(100)), kSuccess);
    EXPECT_EQ(bytes(manager) - weights, 100 * (one - weights));
    EXPECT_EQ(text(model->setBatchSize(1)), kSuccess);
    EXPECT_EQ(bytes(manager), one);

    // A second registration brings a new record, which learns it all.
    manager.registerModel(model);
    EXPECT_EQ(bytes(manager), 0U);
    EXPECT_EQ(text(model->predict({inputs.begin(), inputs.end()}, outputs)), kSuccess);
    EXPECT_EQ(bytes(manager), 2 * one);  // the model is in the snapshot twice
    const std::shared_ptr<const MireloModel> held = model;
    EXPECT_EQ(text(model->doUnload()), kSuccess);
    EXPECT_EQ(bytes(manager), 0U);
    EXPECT_EQ(manager.unloadModel(model).getCode(), MODEL_REFERENCE_ERROR);
    EXPECT_EQ(held.use_count(), 2);
}

}  // namespace
}  // namespace TarnoMirelo
