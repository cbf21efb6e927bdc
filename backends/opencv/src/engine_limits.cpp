#include "engine_limits.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <string_view>

namespace TarnoMirelo::OpenCv {
namespace {

using onnx::TensorProto;

bool isAmong(std::string_view text, std::string_view list) {
    for (size_t begin = 0; begin < list.size();) {
        const size_t end = std::min(list.find(' ', begin), list.size());
        if (list.substr(begin, end - begin) == text) return true;
        begin = end + 1;
    }
    return false;
}

bool isAutoPadded(const OnnxNode& node) { return node.text("auto_pad", "NOTSET").rfind("SAME", 0) == 0; }

bool hasPads(const OnnxNode& node) {
    const std::vector<int64_t> pads = node.numbers("pads");
    return std::ranges::any_of(pads, [](int64_t pad) { return pad != 0; });
}

// Whether a spatial dimension gets an odd number of padding elements, of which one end has one more. True where it
// can't be known.
bool isPaddedUnevenly(const OnnxNode& node, std::vector<int64_t> kernel) {
    const auto shape = node.inputShape(0);
    if (kernel.empty()) kernel = node.numbers("kernel_shape");
    if (!shape || kernel.empty() || shape->size() != kernel.size() + 2) return true;
    const std::vector<int64_t> strides = node.numbers("strides");
    const std::vector<int64_t> dilations = node.numbers("dilations");
    for (size_t i = 0; i < kernel.size(); ++i) {
        const int64_t size = (*shape)[i + 2];
        const int64_t stride = i < strides.size() ? strides[i] : 1;
        const int64_t dilation = i < dilations.size() ? dilations[i] : 1;
        if (size < 1 || stride < 1) return true;
        const int64_t span = (kernel[i] - 1) * dilation + 1;
        const int64_t padding = ((size + stride - 1) / stride - 1) * stride + span - size;
        if (padding > 0 && padding % 2 != 0) return true;
    }
    return false;
}

int64_t axisOf(const OnnxNode& node, int64_t otherwise, size_t rank) {
    const int64_t axis = node.number("axis", otherwise);
    return axis < 0 ? axis + static_cast<int64_t>(rank) : axis;
}

bool hasConstantInput(const OnnxNode& node) {
    for (int i = 0; i < node.inputCount(); ++i) {
        if (node.isConstant(i)) return true;
    }
    return false;
}

// One slope for each channel, or one for all. Before version 7 of the operators, a list was one for each channel.
bool hasSlopePerChannel(const OnnxNode& node) {
    const auto shape = node.inputShape(0);
    const auto slope = node.inputShape(1);
    if (slope && slope->size() == 1 && node.operatorSet() < 7) return true;
    if (!shape || !slope || shape->size() < 2) return false;
    if (std::ranges::all_of(*slope, [](int64_t size) { return size == 1; })) return true;
    for (size_t i = 0; i < slope->size(); ++i) {
        const size_t axis = shape->size() - slope->size() + i;
        if ((*slope)[i] != 1 && axis != 1) return false;
    }
    return slope->size() <= shape->size() && slope->size() + 1 >= shape->size();
}

// By how much each dimension grows; nothing where it can't be known.
std::optional<std::vector<double>> growthOf(const OnnxNode& node) {
    const int scales = node.operatorSet() < 11 ? 1 : 2;
    if (node.type() == "Upsample" && node.operatorSet() < 9) {
        const std::vector<float> factors = node.reals("scales");
        return std::vector<double>(factors.begin(), factors.end());
    }
    if (node.isConstant(scales)) {
        const std::vector<float> factors = node.constantReals(scales);
        if (!factors.empty()) return std::vector<double>(factors.begin(), factors.end());
    }
    const auto from = node.inputShape(0);
    const auto to = node.outputShape(0);
    if (!from || !to || from->size() != to->size()) return std::nullopt;
    std::vector<double> growth;
    for (size_t i = 0; i < from->size(); ++i) {
        if ((*from)[i] < 1 || (*to)[i] < 1) return std::nullopt;
        growth.push_back(static_cast<double>((*to)[i]) / static_cast<double>((*from)[i]));
    }
    return growth;
}

bool growsByWholeNumbers(const OnnxNode& node) {
    const auto growth = growthOf(node);
    return growth && std::ranges::all_of(*growth, [](double by) { return by >= 1 && by == std::floor(by); });
}

bool grows(const OnnxNode& node) {
    const auto growth = growthOf(node);
    return growth && std::ranges::all_of(*growth, [](double by) { return by >= 1; });
}

bool isNearest(const OnnxNode& node) { return node.text("mode", "nearest") == "nearest"; }

// The engine computes these while it reads the network, where all their inputs are constant.
constexpr std::string_view kFolded =
    "Add Cast Concat ConstantOfShape Div Expand Flatten Gather Identity Mul Pad Reshape Shape Slice Squeeze Sub Transpose "
    "Unsqueeze";

constexpr EngineLimit kLimits[] = {
    {"*", "every input is constant, for operators that are not computed while the network is read",
     "all its inputs are constant, which the engine can't take",
     [](const OnnxNode& node) {
         return node.inputCount() > 0 && !node.hasVariableInput() && !isAmong(node.type(), kFolded);
     }},
    {"AveragePool", "count_include_pad is 1 and there is padding", "the engine never counts the padding",
     [](const OnnxNode& node) {
         return node.number("count_include_pad", 0) != 0 && (hasPads(node) || isAutoPadded(node));
     }},
    {"AveragePool MaxPool LpPool", "auto_pad is SAME_LOWER and the padding uneven, or not known to be even",
     "the engine puts the odd element of the padding at the end",
     [](const OnnxNode& node) {
         return node.text("auto_pad", "NOTSET") == "SAME_LOWER" && isPaddedUnevenly(node, {});
     }},
    {"Conv ConvTranspose", "auto_pad is SAME_LOWER and the padding uneven, or not known to be even",
     "the engine puts the odd element of the padding at the end",
     [](const OnnxNode& node) {
         const auto weights = node.inputShape(1);
         std::vector<int64_t> kernel;
         if (weights && weights->size() > 2) kernel.assign(weights->begin() + 2, weights->end());
         return node.text("auto_pad", "NOTSET") == "SAME_LOWER" && isPaddedUnevenly(node, kernel);
     }},
    {"Cast", "from bfloat16", "the engine takes the bits for those of another type",
     [](const OnnxNode& node) { return node.inputType(0) == TensorProto::BFLOAT16; }},
    {"Concat", "along the first dimension, with a constant among the inputs",
     "the engine leaves memory that it never set in the place of the constant",
     [](const OnnxNode& node) {
         const auto shape = node.inputShape(0);
         const int64_t axis = shape ? axisOf(node, 0, shape->size()) : std::min<int64_t>(node.number("axis", 0), 0);
         return axis <= 0 && hasConstantInput(node);
     }},
    {"DequantizeLinear QuantizeLinear QLinearConv QLinearMatMul QLinearAdd", "elements of type uint8",
     "the engine takes them for int8",
     [](const OnnxNode& node) {
         return node.inputType(0) == TensorProto::UINT8 || node.outputType(0) == TensorProto::UINT8;
     }},
    {"InstanceNormalization", "the first dimension is not known to be 1", "the engine computes the first row alone",
     [](const OnnxNode& node) {
         const auto shape = node.inputShape(0);
         return !shape || shape->empty() || shape->front() != 1;
     }},
    {"PRelu", "a constant slope that is neither one number nor one for each channel",
     "the engine takes the first numbers for those of the channels",
     [](const OnnxNode& node) { return node.isConstant(1) && !hasSlopePerChannel(node); }},
    {"Resize Upsample", "mode is nearest, and a dimension is not known to grow by a whole number",
     "the engine picks other elements",
     [](const OnnxNode& node) { return isNearest(node) && !growsByWholeNumbers(node); }},
    {"Resize", "mode is nearest, with other than half_pixel and round_prefer_floor, or asymmetric and floor",
     "the engine picks other elements",
     [](const OnnxNode& node) {
         if (!isNearest(node)) return false;
         const std::string from = node.text("coordinate_transformation_mode", "half_pixel");
         const std::string rounding = node.text("nearest_mode", "round_prefer_floor");
         const bool isHalf = isAmong(from, "half_pixel pytorch_half_pixel") && rounding == "round_prefer_floor";
         return !isHalf && !(from == "asymmetric" && rounding == "floor") && node.operatorSet() >= 11;
     }},
    {"Resize Upsample", "mode is linear, and a dimension is not known to stay or grow",
     "the engine weighs the elements otherwise", [](const OnnxNode& node) { return !isNearest(node) && !grows(node); }},
    {"Resize", "coordinate_transformation_mode is tf_crop_and_resize", "the engine ignores the region",
     [](const OnnxNode& node) {
         return node.text("coordinate_transformation_mode", "half_pixel") == "tf_crop_and_resize";
     }},
};

}  // namespace

std::span<const EngineLimit> engineLimits() { return kLimits; }

const EngineLimit* limitOf(const OnnxNode& node) {
    const auto* const found = std::find_if(std::begin(kLimits), std::end(kLimits), [&](const EngineLimit& limit) {
        return (isAmong(node.type(), limit.operators) || isAmong("*", limit.operators)) && limit.applies(node);
    });
    return found == std::end(kLimits) ? nullptr : found;
}

}  // namespace TarnoMirelo::OpenCv
