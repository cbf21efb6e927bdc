#include "engine_limits.h"
#include "onnx_file.h"

#include <TarnoMirelo/status.h>

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <onnx/defs/parser.h>
#include <onnx/onnx_pb.h>
#include <set>
#include <sstream>

namespace TarnoMirelo::OpenCv {
namespace {

// A network of one graph in ONNX's text form; inputs with values are initializers.
std::string fileOf(const std::string& graph, int operatorSet) {
    onnx::ModelProto model;
    const auto status = onnx::OnnxParser::Parse(*model.mutable_graph(), ("g " + graph).c_str());
    EXPECT_TRUE(status.IsOK()) << status.ErrorMessage() << " in " << graph;
    model.set_ir_version(7);
    model.add_opset_import()->set_version(operatorSet);
    return model.SerializeAsString();
}

// What the target says of the graph's inputs: a dimension named "open" is open there, too, others are one row.
ModelTarget targetOf(const std::string& file) {
    onnx::ModelProto model;
    model.ParseFromString(file);
    ModelTarget target;
    for (const auto& input : model.graph().input()) {
        std::vector<int64_t> shape;
        for (const auto& dimension : input.type().tensor_type().shape().dim()) {
            shape.push_back(dimension.has_dim_value()         ? dimension.dim_value()
                            : dimension.dim_param() == "open" ? -1
                                                              : 1);
        }
        target.inputs.emplace_back(MireloFeatureType::Tensor, true, input.name(), "",
                                   TensorDescriptor(TensorShape(shape), DataType::Float));
    }
    return target;
}

// Why the network is refused, without the node's name; empty where it is not.
std::string refusalOf(const std::string& graph, int operatorSet) {
    const std::string file = fileOf(graph, operatorSet);
    try {
        readOnnxFile(file.data(), file.size(), targetOf(file));
        return {};
    } catch (const ModelMetaDataException& exception) {
        const std::string text = exception.what();
        EXPECT_EQ(text.rfind("Node \"y\" (", 0), 0U) << text;
        return text.substr(text.find("): ") + 3);
    }
}

// Graphs that the engine computes wrong, by the beginning of the reason, and beside each one that it computes right.
TEST(OpenCvLimits, RefuseWhatTheEngineComputesWrongAndNoMore) {
    struct Case {
        const char* reason;
        const char* wrong;
        const char* right;
        int operatorSet = 13;
    };
    const Case cases[] = {
        {"all its inputs are constant",
         "(float[2] x, float[2] c = {1,2}) => (float[2] y, float[2] z) { y = Relu(c) z = Abs(x) }",
         "(float[2] x, float[2] c = {1,2}) => (float[2] y) { d = Mul(c, c) y = Add(x, d) }"},
        {"the axis is counted", "(float x, int64 i = {0}) => (float y) { s = Foo(x) y = Gather<axis = -1>(s, i) }",
         "(float[2,3] x, int64 i = {0}) => (float[2] y) { y = Gather<axis = -1>(x, i) }"},
        {"the engine computes integers", "(int32[2] a, int32[2] b) => (int32[2] y) { y = Div(a, b) }",
         "(float[2] a, float[2] b) => (float[2] y) { y = Div(a, b) }"},
        {"the engine broadcasts the smaller",
         "(float[3,3,3] x, float[3] c = {1,2,3}) => (float[3,3,3] y) { y = Mul(x, c) }",
         "(float[N,3,2,2] x, float[3,1,1] c = {1,2,3}) => (float[N,3,2,2] y) { y = Mul(x, c) }"},
        {"the engine broadcasts the smaller", "(float[3,3] a, float[3,1] b) => (float[3,3] y) { y = Add(a, b) }",
         "(float[3,3] x, float[3] c = {1,2,3}) => (float[3,3] y) { y = Add(x, c) }"},
        {"the engine broadcasts the smaller",
         "(float[3] c = {1,2,3}, float[2,3] x) => (float[2,3] y) { y = Div(c, x) }",
         "(float c = {1}, float[2,3] x) => (float[2,3] y) { y = Div(c, x) }"},
        {"the engine broadcasts the smaller",
         "(float[2,3] x) => (float[2,3] y) { m = ReduceMax<axes = [1]>(x) r = Neg(m) y = Sub(x, r) }",
         "(float[2,3] x, int64[1] a = {1}) => (float[2,3] y) { m = ReduceMax<axes = [1]>(x) s = Sub(x, m) e = Exp(s) t = "
         "ReduceSum(e, a) y = Div(e, t) }"},
        {"the engine broadcasts the smaller",
         "(float[1,2] c = {1,2}, float[1,2] x) => (float[1,2] y) { y = Div(c, x) }",
         "(float[1,2] c = {1,2}, float[1,2] x) => (float[1,2] y) { y = Div(x, c) }"},
        {"the engine leaves operands out",
         "(float[2] a, float[2] b, float[2] c = {1,2}) => (float[2] y) { y = Max(a, b, c) }",
         "(float[2] a, float[2] c = {1,2}) => (float[2] y) { y = Max(a, c) }"},
        {"the engine takes the nodes for one layer",
         "(float[1,3,3] x) => (float[1,3,3] y) { n = ReduceL2<axes = [2]>(x) y = Div(x, n) }",
         "(float[1,3,3] x) => (float[1,3,3] y) { n = ReduceL2<axes = [1]>(x) y = Div(x, n) }"},
        {"the engine takes the nodes for one layer",
         "(float[3,3] x, int64[1] a = {0}) => (float[3,3] y) { m = ReduceMax<axes = [1]>(x) s = Sub(x, m) e = Exp(s) t = "
         "ReduceSum(e, a) y = Div(e, t) }",
         "(float[3,3] x, int64[1] a = {-1}) => (float[3,3] y) { m = ReduceMax<axes = [1]>(x) s = Sub(x, m) e = Exp(s) t = "
         "ReduceSum(e, a) l = Log(t) y = Sub(s, l) }"},
        {"the engine removes the value",
         "(float[2,3] x) => (float[2,3] y, float[2,3] z) { e = Exp(x) t = ReduceSum<axes = [1]>(e) y = Div(e, t) z = Neg(e) }",
         "(float[2,3] x) => (float[2,3] y) { e = Exp(x) t = ReduceSum<axes = [1]>(e) y = Div(e, t) }", 11},
        {"the engine takes the nodes for Celu",
         "(float[2] x, float k = {2}) => (float[2] y) { d = Div(x, k) e = Elu(d) y = Mul(k, e) }",
         "(float[2] x, float k = {2}) => (float[2] y) { d = Div(x, k) e = Elu(d) y = Mul(e, k) }"},
        {"the engine changes the constant",
         "(float[2] x, float[2] c = {1,2}) => (float[2] y, float[2] z) { d = Mul(c, c) y = Div(x, d) z = Mul(x, d) }",
         "(float[2] x, float[2] c = {1,2}) => (float[2] y, float[2] z) { d = Mul(c, c) y = Div(x, d) z = Mul(x, c) }"},
        {"the engine broadcasts an operand",
         "(float[2,3] a, float[2,3] b, float[3] c) => (float[2,3] y) { y = Sum(a, b, c) }",
         "(float[2,3] a, float[2,3] b, float[2,3] c) => (float[2,3] y) { y = Sum(a, b, c) }"},
        {"the engine reads outside", "(float[2,3] a, float b) => (float[2,3] y) { y = Max(a, b) }",
         "(float[2,3] a, float[2,3] b) => (float[2,3] y) { y = Max(a, b) }"},
        {"the engine swaps", "(float[2] x, float[2] c = {1,2}) => (bool[2] y) { y = Less(c, x) }",
         "(float[2] x, float c = {1}) => (bool[2] y) { y = Less(x, c) }"},
        {"the engine leaves the elements", "(float[2] x) => (int32[2] y) { y = Cast<to = 6>(x) }",
         "(int32[2] x) => (float[2] y) { y = Cast<to = 1>(x) }"},
        {"the engine reads the bits", "(bfloat16[2] x) => (float[2] y) { y = Cast<to = 1>(x) }",
         "(double[2] x) => (float[2] y) { y = Cast<to = 1>(x) }"},
        {"the engine reads from an empty list",
         "(float[1,1,2,2] c = {1,2,3,4}, float[1,1,1,1] x) => (float[1,1,2,2] y) { y = Conv(c, x) }",
         "(float[1,1,2,2] x, float[1,1,1,1] w = {2}) => (float[1,1,2,2] y) { y = Conv(x, w) }"},
        {"the engine ignores noop", "(float[2,3] x) => (float[2,3] y) { y = ReduceSum<noop_with_empty_axes = 1>(x) }",
         "(float[2,3] x) => (float[1,1] y) { y = ReduceSum(x) }"},
        {"the engine cuts another",
         "(float[open,6] x, int64[1] b = {0}, int64[1] e = {3}, int64[1] a = {-1}) => (float[4,3] y) { y = Slice(x, b, e, a) }",
         "(float[4,6] x, int64[1] b = {0}, int64[1] e = {3}, int64[1] a = {-1}) => (float[4,3] y) { y = Slice(x, b, e, a) }"},
        {"the engine leaves the dimension out",
         "(float[2,3] x, int64[3] s = {1,2,3}) => (float[1,2,3] y) { y = Expand(x, s) }",
         "(float[2,3] x, int64[3] s = {4,2,3}) => (float[4,2,3] y) { y = Expand(x, s) }"},
        {"the engine leaves the dimension out",
         "(float[open,3] x, int64[2] s = {2,3}) => (float[2,3] y) { y = Expand(x, s) }",
         "(float[open,3] x, int64[2] s = {1,3}) => (float[open,3] y) { y = Expand(x, s) }"},
        {"the engine leaves the dimension out",
         "(float[2,1,1] x, int64[3] s = {2,3,3}) => (float[2,3,3] y) { y = Expand(x, s) }",
         "(float[2,1,1] x, int64[3] s = {2,3,1}) => (float[2,3,1] y) { y = Expand(x, s) }"},
        {"the engine keeps the first", "(float[open,2] x) => (float[1,M] y) { y = Flatten<axis = 0>(x) }",
         "(float[N,2] x) => (float[1,M] y) { y = Flatten<axis = 0>(x) }"},
        {"the engine reads outside of its memory where",
         "(float[1,open,2] x, float[1] s = {1}) => (float[1,open,2] y) { y = BatchNormalization(x, s, s, s, s) }",
         "(float[1,1,open] x, float[1] s = {1}) => (float[1,1,open] y) { y = BatchNormalization(x, s, s, s, s) }"},
        {"the engine leaves the last window",
         "(float[1,1,4,4] x) => (float[1,1,3,3] y) { y = MaxPool<kernel_shape = [1,1], strides = [2,2], ceil_mode = 1>(x) }",
         "(float[1,1,5,5] x) => (float[1,1,3,3] y) { y = MaxPool<kernel_shape = [1,1], strides = [2,2], ceil_mode = 1>(x) }"},
        {"the engine leaves the last window",
         "(float[1,1,4,4] x) => (float[1,1,2,2] y) { y = MaxPool<kernel_shape = [3,3], strides = [2,2], auto_pad = \"VALID\", "
         "ceil_mode = 1>(x) }",
         "(float[1,1,4,4] x) => (float[1,1,2,2] y) { y = MaxPool<kernel_shape = [3,3], strides = [2,2], ceil_mode = 1>(x) }"},
        {"the engine pads both sides",
         "(float[1,1,4] x) => (float[1,1,4] y) { y = MaxPool<kernel_shape = [2], pads = [0,1]>(x) }",
         "(float[1,1,4] x) => (float[1,1,5] y) { y = MaxPool<kernel_shape = [2], pads = [1,1]>(x) }"},
        {"the engine ignores the padding",
         "(float[1,1,3,3] x, float[1,1,1,1] w = {2}) => (float[1,1,1,1] y) { y = ConvTranspose<pads = [1,1,1,1]>(x, w) }",
         "(float[1,1,3,3] x, float[1,1,1,1] w = {2}) => (float[1,1,3,3] y) { y = ConvTranspose(x, w) }"},
        {"the engine makes all parts",
         "(float[open,2] x, int64[2] s = {2,2}) => (float[2,2] y, float[2,2] z) { y, z = Split(x, s) }", nullptr},
        {"the engine cuts another",
         "(float[4,6] x, int64[1] b = {0}, int64[1] e = {6}, int64[1] a = {-1}, int64[1] s = {2}) => "
         "(float[4,3] y) { y = Slice(x, b, e, a, s) }",
         "(float[4,6] x, int64[1] b = {0}, int64[1] e = {6}, int64[1] a = {1}, int64[1] s = {2}) => (float[4,3] y) { y = "
         "Slice(x, b, e, a, s) }"},
        {"the engine writes outside of its lists",
         "(float[2,1] x, int64[1] a = {-1}) => (float[2] y) { y = Squeeze(x, a) }",
         "(float[2,1] x, int64[1] a = {1}) => (float[2] y) { y = Squeeze(x, a) }"},
        {"the engine drops", "(float[2,3] x, int64[1] i = {1}) => (float[1,3] y) { y = Gather(x, i) }",
         "(float[2,3] x, int64 i = {1}) => (float[3] y) { y = Gather(x, i) }"},
        {"the engine takes no element", "(float[2,3] x, int64 i = {-1}) => (float[2] y) { y = Gather<axis = 1>(x, i) }",
         "(float[2,3] x, int64 i = {-2}) => (float[2] y) { y = Gather<axis = 1>(x, i) }"},
        {"the engine ignores the dilation",
         "(float[1,1,5,5] x) => (float[1,1,3,3] y) { y = MaxPool<kernel_shape = [2,2], "
         "dilations = [2,2]>(x) }",
         "(float[1,1,5,5] x) => (float[1,1,4,4] y) { y = MaxPool<kernel_shape = [2,2]>(x) }"},
        {"the engine pads both sides",
         "(float[1,1,4] x, float[1,1,2] w = {1,2}) => (float[1,1,6] y) { y = Conv<pads = [1,2]>(x, w) }",
         "(float[1,1,4] x, float[1,1,2] w = {1,2}) => (float[1,1,5] y) { y = Conv<pads = [1,1]>(x, w) }"},
        {"the engine leaves the elements in", "(float x) => (float y) { s = Foo(x) y = Transpose(s) }",
         "(float[2,3] x) => (float[3,2] y) { y = Transpose(x) }"},
        {"the engine ignores output_shape",
         "(float[1,1,2,2] x, float[1,1,1,1] w = {2}) => (float[1,1,4,4] y) { y = "
         "ConvTranspose<strides = [2,2], output_shape = [4,4]>(x, w) }",
         "(float[1,1,2,2] x, float[1,1,1,1] w = {2}) => (float[1,1,3,3] y) { y = ConvTranspose<strides = [2,2]>(x, w) }"},
        {"the engine ignores training_mode",
         "(float[1,1,2] x, float[1] s = {1}, float[1] b = {1}, float[1] m = {1}, float[1] v = "
         "{1}) => (float[1,1,2] y, float[1] n, float[1] w) { y, n, w = BatchNormalization<training_mode = 1>(x, s, b, m, v) }",
         "(float[1,1,2] x, float[1] s = {1}, float[1] b = {1}, float[1] m = {1}, float[1] v = {1}) => (float[1,1,2] y) { y = "
         "BatchNormalization(x, s, b, m, v) }",
         14},
        {"the engine resizes only",
         "(float[1,1,2,2] x, float[0] r = {}, float[4] s = {1,2,2,2}) => (float[1,2,4,4] y) { y = "
         "Resize<mode = \"nearest\">(x, r, s) }",
         nullptr},
        {"the engine ignores transA",
         "(float[N,2] x, float[2,2] w = {1,2,3,4}) => (float[N,2] y) { y = Gemm<alpha = 2.0>(x, w) }",
         "(float[N,2] x, float[2,2] w = {1,2,3,4}, float[2] c = {1,2}) => (float[N,2] y) { y = Gemm(x, w, c) }"},
        {"the engine keeps the dimension",
         "(float[1,2,3] x, float[3] c = {1,2,3}) => (float[1,2] y) { y = MatMul(x, c) }",
         "(float[2,3] x, float[3] c = {1,2,3}) => (float[2] y) { y = MatMul(x, c) }"},
        {"the engine computes over one", "(float[2,3,4] x) => (float[2,3,4] y) { y = Softmax<axis = 1>(x) }",
         "(float[2,3,4] x) => (float[2,3,4] y) { y = Softmax<axis = -1>(x) }", 11},
        {"the engine leaves uninitialised memory",
         "(float[1,2] x, float[1,2] c = {1,2}) => (float[1,4] y) { y = Concat<axis = 1>(x, c) }",
         "(float[2,2] x, float[2,1] c = {1,2}) => (float[2,3] y) { y = Concat<axis = 1>(x, c) }"},
        {"the engine assumes a size of 1", "(float[open,2] x) => (float[1,2] y) { y = ReduceMean<axes = [0]>(x) }",
         "(float[N,2] x) => (float[N] y) { y = ReduceMean<axes = [1], keepdims = 0>(x) }"},
        {"the engine makes all parts",
         "(float[4,2] x, int64[2] s = {1,3}) => (float[1,2] y, float[3,2] z) { y, z = Split(x, s) }",
         "(float[4,2] x, int64[2] s = {2,2}) => (float[2,2] y, float[2,2] z) { y, z = Split(x, s) }"},
        {"the engine assumes a size of 1", "(float[2,open] x) => (int64[2] y) { y = Shape(x) }",
         "(float[N,2] x) => (int64[2] y) { y = Shape(x) }"},
        {"the engine never counts",
         "(float[1,1,4,4] x) => (float[1,1,4,4] y) { y = AveragePool<kernel_shape = [3,3], "
         "pads = [1,1,1,1], count_include_pad = 1>(x) }",
         "(float[1,1,4,4] x) => (float[1,1,4,4] y) { y = AveragePool<kernel_shape = [3,3], pads = [1,1,1,1]>(x) }"},
        {"the engine puts the odd",
         "(float[1,1,4,4] x) => (float[1,1,4,4] y) { y = MaxPool<kernel_shape = [2,2], "
         "auto_pad = \"SAME_LOWER\">(x) }",
         "(float[1,1,4,4] x) => (float[1,1,4,4] y) { y = MaxPool<kernel_shape = [3,3], auto_pad = \"SAME_LOWER\">(x) }"},
        {"the engine pads as",
         "(float[1,1,9,9] x, float[1,1,3,3] w = {1,1,1,1,1,1,1,1,1}) => (float[1,1,9,9] y) { y = "
         "Conv<dilations = [2,2], auto_pad = \"SAME_UPPER\">(x, w) }",
         "(float[1,1,9,9] x, float[1,1,3,3] w = {1,1,1,1,1,1,1,1,1}) => (float[1,1,9,9] y) { y = "
         "Conv<auto_pad = \"SAME_UPPER\">(x, w) }"},
        {"the engine uses its first", "(float[1,2,2] x, float[2] s = {1,2}) => (float[1,2,2] y) { y = PRelu(x, s) }",
         "(float[1,2,2] x, float[2,1] s = {1,2}) => (float[1,2,2] y) { y = PRelu(x, s) }"},
        {"the engine computes only the first row",
         "(float[2,1,2,2] x, float[1] s = {1}, float[1] b = {1}) => (float[2,1,2,2] y) { y "
         "= InstanceNormalization(x, s, b) }",
         "(float[N,1,2,2] x, float[1] s = {1}, float[1] b = {1}) => (float[N,1,2,2] y) { y = InstanceNormalization(x, s, b) }"},
        {"the engine writes outside", "(float[2] x, int64 a = {0}) => (float[2] y) { y = CumSum(x, a) }", nullptr},
        {"the engine ignores linear_before_reset",
         "(float[1,1,1] x, float[1,3,1] w = {1,1,1}, float[1,3,1] r = {1,1,1}) => "
         "(float[1,1,1,1] y) { y = GRU<hidden_size = 1>(x, w, r) }",
         "(float[1,1,1] x, float[1,3,1] w = {1,1,1}, float[1,3,1] r = {1,1,1}) => (float[1,1,1,1] y) { y = "
         "GRU<hidden_size = 1, linear_before_reset = 1>(x, w, r) }"},
        {"the engine ignores peepholes",
         "(float[1,1,1] x, float[1,4,1] w = {1,1,1,1}, float[1,4,1] r = {1,1,1,1}) => "
         "(float[1,1,1,1] y) { y = LSTM<hidden_size = 1, clip = 0.5>(x, w, r) }",
         "(float[1,1,1] x, float[1,4,1] w = {1,1,1,1}, float[1,4,1] r = {1,1,1,1}) => (float[1,1,1,1] y) { y = "
         "LSTM<hidden_size = 1>(x, w, r) }"},
        {"the engine picks",
         "(float[1,1,2,2] x, float[0] r = {}, float[4] s = {1,1,2,2}) => (float[1,1,4,4] y) { y = "
         "Resize<mode = \"nearest\", nearest_mode = \"ceil\">(x, r, s) }",
         "(float[1,1,2,2] x, float[0] r = {}, float[4] s = {1,1,2,2}) => (float[1,1,4,4] y) { y = Resize<mode = \"nearest\">"
         "(x, r, s) }"},
        {"the engine weights",
         "(float[1,1,4,4] x, float[0] r = {}, float[4] s = {1,1,0.5,0.5}) => (float[1,1,2,2] y) { y = "
         "Resize<mode = \"linear\">(x, r, s) }",
         "(float[1,1,2,2] x, float[0] r = {}, float[4] s = {1,1,2,2}) => (float[1,1,4,4] y) { y = Resize<mode = \"linear\">"
         "(x, r, s) }"},
        {"the engine reads uint8", "(uint8[2] x, float s = {1}) => (float[2] y) { y = DequantizeLinear(x, s) }",
         nullptr},
        {"the axis is not a dimension", "(float[2,3] x) => (float[2,3] y) { y = Softmax<axis = 2>(x) }",
         "(float[2,3] x) => (float[2,3] y) { y = Softmax<axis = 1>(x) }"},
        {"the index is beyond", "(float[2,3] x, int64 i = {2}) => (float[3] y) { y = Gather(x, i) }",
         "(float[2,3] x, int64 i = {1}) => (float[3] y) { y = Gather(x, i) }"},
    };
    std::set<std::string> met;
    for (const Case& test : cases) {
        const std::string refusal = refusalOf(test.wrong, test.operatorSet);
        met.insert(refusal);
        EXPECT_EQ(refusal.rfind(test.reason, 0), 0U) << test.wrong << " gives: " << refusal;
        if (test.right == nullptr) continue;
        EXPECT_EQ(refusalOf(test.right, test.operatorSet), "") << test.right;
    }
    for (const EngineLimit& limit : engineLimits()) EXPECT_EQ(met.count(limit.reason), 1U) << limit.condition;
}

// Each would bring down the engine or the inference of shapes, or have them read beside their memory.
TEST(OpenCvLimits, RefuseWhatNobodyMayCompute) {
    struct Case {
        const char* refusal;
        const char* graph;
        std::function<void(onnx::ModelProto&)> change = [](onnx::ModelProto& /*model*/) {};
    };
    const char* const sum = "(float[2] x, float[2] c = {1,2}) => (float[2] y) { y = Add(x, c) }";
    const char* const convolution =
        "(float[1,1,2,2] x, float[1,1,1,1] w = {2}) => (float[1,1,2,2] y) { y = Conv<strides = [1,1], group = 1>(x, w) }";
    const auto numberOf = [](onnx::ModelProto& model, const char* name) -> onnx::AttributeProto& {
        auto& attributes = *model.mutable_graph()->mutable_node(0)->mutable_attribute();
        return *std::find_if(attributes.begin(), attributes.end(), [&](const auto& one) { return one.name() == name; });
    };
    const Case cases[] = {
        {R"(Node "y" (Conv): strides holds a number that is not from 1 to 2^31 - 1)", convolution,
         [&](onnx::ModelProto& model) { numberOf(model, "strides").set_ints(0, 0); }},
        {R"(Node "y" (Conv): group holds a number that is not from 1 to 2^31 - 1)", convolution,
         [&](onnx::ModelProto& model) { numberOf(model, "group").set_i(int64_t{1} << 40); }},
        {R"(Node "y" (Conv): its weights are empty)",
         "(float[1,1,2,2] x, float[0,1,1,1] w = {}) => (float[1,1,2,2] y) { y = Conv(x, w) }"},
        {R"(Node "" (Add): it has no output, wanted is one)", sum,
         [](onnx::ModelProto& model) { model.mutable_graph()->mutable_node(0)->clear_output(); }},
        {R"(Node "y" (Add): Node () has input size 1 not in range [min=2, max=2].)", sum,
         [](onnx::ModelProto& model) { model.mutable_graph()->mutable_node(0)->mutable_input()->RemoveLast(); }},
        {R"(Node "y" (Add): it holds a graph, which the engine can't run)", sum,
         [](onnx::ModelProto& model) { model.mutable_graph()->mutable_node(0)->add_attribute()->mutable_g(); }},
        {R"(Node "y" (Conv): kernel_shape is left out, and its weights don't tell it)",
         "(float[1,1,2,2] x, float[1,1,1,1] v) => (float[1,1,2,2] y) { w = Neg(v) y = Conv(x, w) }"},
        {R"(Constant "c": it has data for another number of elements, wanted is data for 100000)", sum,
         [](onnx::ModelProto& model) { model.mutable_graph()->mutable_initializer(0)->set_dims(0, 100000); }},
        {R"(Constant "c": it has data for another number of elements, wanted is data for 2)", sum,
         [](onnx::ModelProto& model) { model.mutable_graph()->mutable_initializer(0)->set_raw_data("four"); }},
        {R"(Constant "c": it has a shape that can't be counted, wanted is one of up to 2^31 - 1 elements)", sum,
         [](onnx::ModelProto& model) { model.mutable_graph()->mutable_initializer(0)->set_dims(0, -2); }},
        {R"(Node "y" (Add): the network's version of ONNX's operators is 0, wanted is one from 1)", sum,
         [](onnx::ModelProto& model) { model.mutable_opset_import(0)->set_version(0); }},
        {R"(Node "y" (Add): the network's version of ONNX's operators is 0, wanted is one from 1)", sum,
         [](onnx::ModelProto& model) { model.mutable_opset_import(0)->set_domain("com.example"); }},
        {R"(Node "y" (ReduceMean): the engine assumes a size of 1)",
         "(float[open,3] x) => (float[1,3] y) { r = Neg(x) y = ReduceMean<axes = [0]>(r) }",
         [](onnx::ModelProto& model) {  // what an exporter left behind when the input was opened
             auto& value = *model.mutable_graph()->add_value_info();
             value = model.graph().input(0);
             value.set_name("r");
             value.mutable_type()->mutable_tensor_type()->mutable_shape()->mutable_dim(0)->set_dim_value(1);
         }},
        {R"(Node "y" (Gather): the axis is not a dimension of the input)",  // in spite of the output's shape in the
                                                                            // file
         "(float[1,1,2] x, int64 i = {0}) => (float[1,2] y, float[1,1,2] s) { s = Squeeze(x) y = Gather<axis = 2>(s, i) }"},
    };
    for (const Case& test : cases) {
        onnx::ModelProto model;
        model.ParseFromString(fileOf(test.graph, 13));
        test.change(model);
        const std::string file = model.SerializeAsString();
        try {
            readOnnxFile(file.data(), file.size(), targetOf(file));
            ADD_FAILURE() << "taken: " << test.refusal;
        } catch (const ModelMetaDataException& exception) {
            EXPECT_STREQ(exception.what(), test.refusal);
        }
    }
}

TEST(OpenCvLimits, KeepApartWhatTheEngineFusesWrongly) {
    struct Case {
        const char* wrong;
        const char* right;
    };
    const Case cases[] = {
        {"(float[2,2] a, float[2,2] b) => (float[2,2] y) { c = MatMul(a, b) y = Relu(c) }",
         "(float[2,2] a, float[2,2] b = {1,2,3,4}) => (float[2,2] y) { c = MatMul(a, b) y = Relu(c) }"},
        {"(float[1,2] x, float[2] s = {1,2}) => (float[1,2] y) { a = Add(x, x) y = BatchNormalization(a, s, s, s, s) }",
         "(float[1,2,1,1] x, float[2] s = {1,2}) => (float[1,2,1,1] y) { a = Add(x, x) y = BatchNormalization(a, s, s, s, s) }"},
        {"(float[1,2] x, float[2,2] w = {1,2,3,4}, float[2] s = {1,2}) => (float[1,2] y) { a = MatMul(x, w) y = PRelu(a, s) }",
         "(float[1,2] x, float[2,2] w = {1,2,3,4}, float[1] s = {2}) => (float[1,2] y) { a = MatMul(x, w) y = PRelu(a, s) }"},
        {"(float[1,1,2,2] x, float[1,1,1,1] w = {2}) => (float[1,1,2,2] y) { a = ConvTranspose(x, w) y = Relu(a) }",
         "(float[1,1,2,2] x, float[1,1,1,1] w = {2}) => (float[1,1,2,2] y) { a = Conv(x, w) y = Relu(a) }"},
        {"(float[1,2,2,2] x, float[2,2,1,1] w = {1,2,3,4}, float[2] c = {1,2}) => (float[1,2,2,2] y) { a = Conv(x, w) b = Mul(a, "
         "a) y = Add(b, c) }",
         "(float[1,2,2,2] x, float[2,2,1,1] w = {1,2,3,4}, float[2,1,1] c = {1,2}) => (float[1,2,2,2] y) { a = Conv(x, w) b = "
         "Mul(a, a) y = Add(b, c) }"},
        {"(float[2] x, float c = {2}) => (float[2] y) { a = Pow(x, c) y = Mul(a, c) }",
         "(float[2] x, float c = {2}) => (float[2] y) { a = Pow(x, c) y = Relu(a) }"},
    };
    const auto isKeptApart = [](const char* graph) {
        const std::string file = fileOf(graph, 13);
        return readOnnxFile(file.data(), file.size(), targetOf(file)).fusesWrongly;
    };
    for (const Case& test : cases) {
        EXPECT_TRUE(isKeptApart(test.wrong)) << test.wrong;
        EXPECT_FALSE(isKeptApart(test.right)) << test.right;
    }
}

TEST(OpenCvLimits, AreThoseOfThePage) {
    std::ifstream page(OPENCV_PAGE);
    std::stringstream text;
    text << page.rdbuf();
    for (const EngineLimit& limit : engineLimits()) {
        const std::string row =
            std::string("| ") + limit.operators + " | " + limit.condition + " | " + limit.reason + " |\n";
        EXPECT_NE(text.str().find(row), std::string::npos) << "docs/opencv.md lacks\n" << row;
    }
}

// What the engine reads wrong and is written otherwise for it.
TEST(OpenCvLimits, LeaveAloneWhatIsRepaired) {
    const auto repaired = [](const char* graph, bool withoutFirst = false) {
        onnx::ModelProto original;
        original.ParseFromString(fileOf(graph, 13));
        if (withoutFirst) original.mutable_graph()->mutable_node(0)->set_output(0, "");
        const std::string file = original.SerializeAsString();
        onnx::ModelProto model;
        const OnnxFile read = readOnnxFile(file.data(), file.size(), targetOf(file));
        model.ParseFromArray(read.repaired.data(), static_cast<int>(read.repaired.size()));
        std::set<std::string> attributes;
        for (const auto& attribute : model.graph().node(0).attribute()) {
            std::string text = attribute.name() + " " + std::to_string(attribute.i());
            for (const int64_t number : attribute.ints()) text += "," + std::to_string(number);
            attributes.insert(text);
        }
        return attributes;
    };
    EXPECT_EQ(
        repaired("(float[N,2] x, float[2,2] w = {1,2,3,4}) => (float[N,2] y) { y = Gemm(x, w) }").count("transB 0"),
        1U);
    // The first output may be left out.
    EXPECT_EQ(repaired("(float[1,1,1] x, float[1,4,1] w = {1,1,1,1}, float[1,4,1] r = {1,1,1,1}) => (float[1,1,1] y) { "
                       "none, y = LSTM<hidden_size = 1>(x, w, r) }",
                       true)
                  .count("hidden_size 1"),
              1U);
    EXPECT_EQ(repaired("(float[1,2,3] x) => (float[1,2,1] y) { y = ReduceMax<axes = [-1,0]>(x) }").count("axes 0,0,2"),
              1U);
    EXPECT_EQ(repaired("(float[3] x) => (float[3] y) { y = Softmax(x) }"), std::set<std::string>{"axis 0"});
    EXPECT_EQ(repaired("(float[1,1,3,3] x, float[1,1,2,1] w = {1,1}) => (float[1,1,2,3] y) { y = Conv(x, w) }")
                  .count("kernel_shape 0,2,1"),
              1U);
}

// The engine inverts the divisor in place.
TEST(OpenCvLimits, GiveEachNodeItsOwnWeights) {
    const std::string file = fileOf(
        "(float[2] x, float[2] c = {1,2}, float d = {3}) => (float[2] y) { a = Div(x, c) b = Mul(a, c) e = Add(b, d) y = "
        "Sub(e, d) }",
        13);
    onnx::ModelProto model;
    const OnnxFile read = readOnnxFile(file.data(), file.size(), targetOf(file));
    model.ParseFromArray(read.repaired.data(), static_cast<int>(read.repaired.size()));
    const onnx::GraphProto& graph = model.graph();
    ASSERT_EQ(graph.initializer_size(), 3);
    EXPECT_EQ(graph.node(0).input(1), "c");
    EXPECT_EQ(graph.node(1).input(1), graph.initializer(2).name());
    EXPECT_EQ(graph.initializer(2).float_data_size(), 2);
    EXPECT_EQ(graph.node(3).input(1), "d");
}

}  // namespace
}  // namespace TarnoMirelo::OpenCv
