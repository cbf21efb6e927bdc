#include "engine_limits.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <string_view>

namespace TarnoMirelo::OpenCv {
namespace {

using onnx::TensorProto;
using Shape = std::vector<int64_t>;

bool isAmong(std::string_view text, std::string_view list) {
    for (size_t begin = 0; begin < list.size();) {
        const size_t end = std::min(list.find(' ', begin), list.size());
        if (list.substr(begin, end - begin) == text) return true;
        begin = end + 1;
    }
    return false;
}

bool isKnown(const Shape& shape) {
    return std::ranges::none_of(shape, [](int64_t size) { return size < 0; });
}

bool isSingle(const Shape& shape) {
    return std::ranges::all_of(shape, [](int64_t size) { return size == 1; });
}

bool isFloat(int type) { return type == TensorProto::FLOAT || type == TensorProto::DOUBLE; }
bool isInteger(int type) { return type != TensorProto::UNDEFINED && !isFloat(type) && type != TensorProto::FLOAT16; }

// Constants

// The engine computes these while it reads the network, where all their inputs are constant.
constexpr std::string_view kFolded =
    "Add Cast Concat ConstantOfShape Div Expand Flatten Gather Mul Reshape Shape Slice Squeeze Sub Sum Transpose Unsqueeze";

bool isConstantAndNotFolded(const OnnxNode& node) {
    return node.inputCount() > 0 && !node.hasVariableInput() && !isAmong(node.type(), kFolded);
}

// Arithmetic of two operands

bool computesIntegers(const OnnxNode& node) {
    const bool isShapeArithmetic = !node.hasVariableInput() && node.type() != "Div";
    return !isShapeArithmetic && (isInteger(node.inputType(0)) || isInteger(node.inputType(1)));
}

// Whether the dimensions of `small` are those of `large` from `start` to some dimension, and 1 before and behind: the
// engine lays the one along the other from there.
bool liesAlong(Shape large, const Shape& small, size_t start) {
    if (small.size() > large.size()) return false;
    const size_t missing = large.size() - small.size();
    size_t last = large.size();  // beyond the last dimension that is not 1
    while (last > missing && small[last - missing - 1] == 1) --last;
    if (last < start) return isSingle(small);
    for (size_t i = 0; i < last; ++i) {
        const int64_t size = i < missing ? 1 : small[i - missing];
        const bool isWanted = i < start ? size == 1 : size > 0 && size == large[i];
        if (!isWanted) return false;
    }
    return true;
}

// Whether the one operand is broadcast along a dimension of the other.
bool isSmaller(const Shape& one, const Shape& other) {
    if (one.size() != other.size()) return one.size() < other.size();
    for (size_t i = 0; i < one.size(); ++i) {
        if (one[i] == 1 && other[i] != 1) return true;
    }
    return false;
}

// Nodes that the engine takes for one layer

std::optional<OnnxNode> producerOfType(const std::optional<OnnxNode>& node, int input, std::string_view type) {
    const auto producer = node ? node->producerOf(input) : std::nullopt;
    return producer && producer->type() == type ? producer : std::nullopt;
}

// Counted from the start where the number of dimensions is known.
Shape reducedAxes(const OnnxNode& node) {
    Shape axes = node.numbers("axes");
    if (axes.empty()) axes = node.constantNumbers(1);
    const auto shape = node.inputShape(0);
    for (int64_t& axis : axes) {
        if (axis < 0 && shape) axis += static_cast<int64_t>(shape->size());
    }
    return axes;
}

bool reducesOneAxis(const OnnxNode& node) { return reducedAxes(node).size() == 1 && node.number("keepdims", 1) == 1; }

// The sum in Exp(s) / ReduceSum(Exp(s)), or in s - Log(ReduceSum(Exp(s))), which the engine knows from version 13 on.
std::optional<OnnxNode> sumOfSoftmax(const OnnxNode& node) {
    const bool isLogarithm = node.type() == "Sub" && node.operatorSet() >= 13;
    if (!isLogarithm && node.type() != "Div") return std::nullopt;
    const auto sum =
        producerOfType(isLogarithm ? producerOfType(node, 1, "Log") : node, isLogarithm ? 0 : 1, "ReduceSum");
    const auto exponents = producerOfType(sum, 0, "Exp");
    const bool isEnd = exponents && (isLogarithm ? *exponents : *sum).takes(node, 0);
    return isEnd ? sum : std::nullopt;
}

// The maximum in x - ReduceMax(x).
std::optional<OnnxNode> maximumOf(const std::optional<OnnxNode>& difference) {
    const auto maximum = producerOfType(difference, 1, "ReduceMax");
    return maximum && maximum->takes(*difference, 0) ? maximum : std::nullopt;
}

// The engine computes x - max(x) and what follows of a softmax that is written out as one.
bool isPartOfSoftmax(const OnnxNode& node) {
    if (node.type() != "Sub" || node.operatorSet() < 13) return false;
    const auto isEnd = [](const OnnxNode& next) { return sumOfSoftmax(next).has_value(); };
    if (isEnd(node)) return true;
    return maximumOf(node) && std::ranges::any_of(node.consumers(), [&](const OnnxNode& next) {
               return isEnd(next) || (next.type() == "Exp" && std::ranges::any_of(next.consumers(), isEnd));
           });
}

// Whether a softmax or a norm that is written out is not along the one dimension that the engine takes it along.
bool isAlongOtherAxes(const OnnxNode& node) {
    const auto norm = node.type() == "Div" ? producerOfType(node, 1, "ReduceL2") : std::nullopt;
    if (norm && norm->takes(node, 0)) return !reducesOneAxis(*norm) || reducedAxes(*norm).front() != 1;
    const auto sum = sumOfSoftmax(node);
    if (!sum) return false;
    const auto maximum = maximumOf(producerOfType(sum->producerOf(0), 0, "Sub"));
    return !reducesOneAxis(*sum) || (maximum && node.operatorSet() >= 13 &&
                                     (!reducesOneAxis(*maximum) || reducedAxes(*maximum) != reducedAxes(*sum)));
}

// Whether nodes within a softmax, a norm or a Mish that is written out, which the engine removes, have other uses.
bool dropsUsedValues(const OnnxNode& node) {
    const auto isUsedMoreThan = [](size_t times, const std::optional<OnnxNode>& within) {
        return within && within->consumers().size() > times;
    };
    const auto norm = node.type() == "Div" ? producerOfType(node, 1, "ReduceL2") : std::nullopt;
    if (norm && norm->takes(node, 0)) return isUsedMoreThan(1, norm);
    if (node.type() == "Mul") {
        const auto tangent = producerOfType(node, 1, "Tanh");
        const auto softplus = producerOfType(tangent, 0, "Softplus");
        return softplus && (isUsedMoreThan(1, tangent) || isUsedMoreThan(1, softplus));
    }
    const auto sum = sumOfSoftmax(node);
    if (!sum) return false;
    const size_t uses = node.type() == "Div" ? 1 : 2;  // of the difference: in a logarithm by its end, too
    const auto exponents = sum->producerOf(0);
    if (isUsedMoreThan(1, sum) || isUsedMoreThan(3 - uses, exponents) ||
        (uses == 2 && isUsedMoreThan(1, node.producerOf(1))))
        return true;
    const auto difference = node.operatorSet() < 13 ? std::nullopt : producerOfType(exponents, 0, "Sub");
    const auto maximum = maximumOf(difference);
    return maximum && (isUsedMoreThan(1, maximum) || isUsedMoreThan(uses, difference));
}

// The engine takes Mul(k, Elu(Div(x, k))) for Celu, and reads k from Constant nodes without looking.
bool isLikeCelu(const OnnxNode& node) {
    const auto quotient = producerOfType(producerOfType(node, 1, "Elu"), 0, "Div");
    const auto isNumber = [](const OnnxNode& user, int input) {
        return producerOfType(user, input, "Constant") && isSingle(user.inputShape(input).value_or(Shape{0}));
    };
    return quotient && !(isNumber(node, 0) && isNumber(*quotient, 1));
}

// Whether the engine repeats an operand as often as a size says that is open before the run.
bool isLaidAlongOpenSizes(const Shape& large, const Shape& small) {
    const size_t missing = large.size() - small.size();
    for (size_t i = 0; i < large.size(); ++i) {
        const int64_t size = i < missing ? 1 : small[i - missing];
        if (size < 0 || (large[i] < 0 && (i > 0 || size != 1))) return true;
    }
    return false;
}

// Whether the engine broadcasts the one operand over the other as ONNX does.
bool isBroadcastWrong(const OnnxNode& node) {
    if (node.inputCount() != 2 || !node.hasVariableInput() || isPartOfSoftmax(node)) return false;
    const auto first = node.inputShape(0);
    const auto second = node.inputShape(1);
    if (!first || !second) return true;
    if (*first == *second) {  // of which a leading 1 makes the engine take the dividend along the rest
        return node.type() == "Div" && node.isConstant(0) && !isSingle(*first) && first->front() == 1;
    }
    const bool hasConstant = node.isConstant(0) || node.isConstant(1);
    const bool isFirstSmall = node.isConstant(0) || (!hasConstant && isSmaller(*first, *second));
    const Shape& small = isFirstSmall ? *first : *second;
    const Shape& large = isFirstSmall ? *second : *first;
    if (isSmaller(large, small)) return true;
    if (node.type() == "Div" && isFirstSmall) return !hasConstant || !isSingle(small);
    if (isSingle(small)) return !hasConstant && isFirstSmall && node.type() != "Mul";
    if (node.attribute("axis") != nullptr) return true;  // before version 7, from where the small operand begins
    if (isAmong(node.type(), "Equal Less Greater")) return true;
    if (isAmong(node.type(), "Mul Div") && !hasConstant) return isLaidAlongOpenSizes(large, small);
    if (!hasConstant && isFirstSmall) return true;  // the result gets the shape of the first
    const bool isFromEnd = node.isInitializer(isFirstSmall ? 0 : 1) && isAmong(node.type(), "Add Sub Sum");
    return !liesAlong(large, small, isFromEnd ? large.size() - small.size() : 1);
}

bool isComparedBackwards(const OnnxNode& node) { return node.isConstant(0) && node.hasVariableInput(); }

bool hasConstantInput(const OnnxNode& node) {
    for (int i = 0; i < node.inputCount(); ++i) {
        if (node.isConstant(i)) return true;
    }
    return false;
}

bool takesSharedConstant(const OnnxNode& node) {
    for (int i = 0; node.hasVariableInput() && i < node.inputCount(); ++i) {
        if (node.isSharedConstant(i)) return true;
    }
    return false;
}

// The engine takes operands of one shape only, and none without dimensions.
bool hasOtherShapes(const OnnxNode& node) {
    const auto first = node.inputShape(0);
    for (int i = 0; i < node.inputCount(); ++i) {
        const auto shape = node.inputShape(i);
        if (!first || !shape || shape->empty() || *shape != *first) return true;
    }
    return false;
}

// Axes

bool hasAxisFromUnknownEnd(const OnnxNode& node) { return node.number("axis", 0) < 0 && node.type() != "OneHot"; }

bool hasAxisBeyond(const OnnxNode& node) {
    const auto shape = node.inputShape(0);
    const auto axis = node.number("axis", 0);
    if (!shape || node.attribute("axis") == nullptr) return false;
    if (isAmong(node.type(), "DequantizeLinear OneHot QuantizeLinear"))
        return false;  // may be, or is one of the result
    const auto rank = static_cast<int64_t>(shape->size());
    return axis > rank || (axis == rank && node.type() != "Flatten");
}

bool indexesBeyond(const OnnxNode& node) {
    const auto shape = node.inputShape(0);
    const Shape indices = node.constantNumbers(1);
    const int64_t axis = node.number("axis", 0);
    if (!shape || axis < 0 || axis >= static_cast<int64_t>(shape->size())) return shape.has_value();
    const int64_t size = (*shape)[static_cast<size_t>(axis)];
    return size >= 0 && std::ranges::any_of(indices, [size](int64_t index) { return index >= size || index < -size; });
}

// Before version 13, ONNX flattened all dimensions from the axis on; the engine takes one of them.
bool isSoftmaxOfSeveralDimensions(const OnnxNode& node) {
    if (node.operatorSet() >= 13) return false;
    const auto shape = node.inputShape(0);
    if (!shape) return true;
    const auto axis = static_cast<size_t>(node.number("axis", 1));
    return axis + 1 < shape->size() &&
           !isSingle(Shape(shape->begin() + static_cast<ptrdiff_t>(axis) + 1, shape->end()));
}

// The engine leaves an input of the network out where nothing but constants stands before it in memory.
bool isConcatOfInputAndConstants(const OnnxNode& node) {
    bool hasInput = false;
    bool hasConstant = false;
    for (int i = 0; i < node.inputCount(); ++i) {
        hasInput = hasInput || node.isNetworkInput(i);
        hasConstant = hasConstant || node.isConstant(i);
    }
    if (!hasInput || !hasConstant) return false;
    const auto shape = node.inputShape(0);
    const int64_t axis = node.number("axis", 0);
    return !shape || axis > static_cast<int64_t>(shape->size()) ||
           std::all_of(shape->begin(), shape->begin() + axis, [](int64_t size) { return size <= 1; });
}

// Whether a dimension that is summed up or the like has a size that the engine has to guess.
bool reducesOpenDimension(const OnnxNode& node) {
    const auto shape = node.inputShape(0);
    if (!shape) return true;
    Shape axes = node.numbers("axes");
    if (axes.empty() && node.hasInput(1)) return !isKnown(*shape);
    if (axes.empty()) return !isKnown(*shape);
    return std::ranges::any_of(axes, [&](int64_t axis) {
        const auto rank = static_cast<int64_t>(shape->size());
        const int64_t index = axis < 0 ? axis + rank : axis;
        return index < 0 || index >= rank || (*shape)[static_cast<size_t>(index)] < 0;
    });
}

// Squeeze and its like, where the axes are an input.
bool hasNegativeAxes(const OnnxNode& node, int input) {
    return std::ranges::any_of(node.constantNumbers(input), [](int64_t axis) { return axis < 0; });
}

bool isOtherExpand(const OnnxNode& node) {
    const auto from = node.inputShape(0);
    const Shape to = node.constantNumbers(1);
    if (!from) return true;
    int grown = 0;
    for (size_t i = 0; i < to.size(); ++i) {  // from the end
        const int64_t size = to[to.size() - 1 - i];
        const int64_t before = i < from->size() ? (*from)[from->size() - 1 - i] : 0;
        if ((before == 0 && size == 1) || (before < 0 && size != 1)) return true;
        if (before == 1 && size != 1) ++grown;
    }
    return grown > 1 && from->front() != 1;
}

bool dropsAxisOfIndex(const OnnxNode& node) {
    const auto index = node.inputShape(1);
    return !node.isConstant(0) && (!index || !index->empty());
}

bool asksForOpenShape(const OnnxNode& node) {
    const auto shape = node.inputShape(0);
    return !shape || !isKnown(*shape);
}

// Products

bool isGemmWithMore(const OnnxNode& node) {
    if (node.number("transA", 0) != 0 || node.real("alpha", 1) != 1) return true;
    if (!node.hasInput(2)) return false;
    const auto addend = node.inputShape(2);
    const auto weights = node.inputShape(1);
    if (node.real("beta", 1) != 1 || !addend || addend->empty() || !weights || weights->size() != 2) return true;
    const int64_t columns = (*weights)[node.number("transB", 0) != 0 ? 0 : 1];
    return columns < 1 || addend->back() != columns || !isSingle(Shape(addend->begin(), addend->end() - 1));
}

bool isProductWithList(const OnnxNode& node) {
    const auto first = node.inputShape(0);
    const auto second = node.inputShape(1);
    return first && second && std::min(first->size(), second->size()) == 1 &&
           std::max(first->size(), second->size()) > 2;
}

// Parts

// The sizes were an attribute before version 13.
bool splitsByInput(const OnnxNode& node) {
    if (!node.hasInput(1)) return false;
    const Shape sizes = node.constantNumbers(1);
    const auto shape = node.inputShape(0);
    const auto axis = static_cast<size_t>(node.number("axis", 0));
    if (!shape || axis >= shape->size() || (*shape)[axis] < 0) return true;
    return sizes.empty() || std::ranges::any_of(sizes, [&](int64_t size) { return size != sizes.front(); });
}

// Windows

bool hasPads(const OnnxNode& node) {
    return std::ranges::any_of(node.numbers("pads"), [](int64_t pad) { return pad != 0; });
}

bool isAutoPadded(const OnnxNode& node) { return node.text("auto_pad", "NOTSET").rfind("SAME", 0) == 0; }

constexpr int64_t kMost = std::numeric_limits<int32_t>::max();  // what the engine can count

// Whether a dimension gets an odd number of padding elements, of which one end has one more. True where it can't be
// known.
bool isPaddedUnevenlyAtStart(const OnnxNode& node) {
    if (node.text("auto_pad", "NOTSET") != "SAME_LOWER") return false;
    const auto shape = node.inputShape(0);
    const Shape kernel = node.numbers("kernel_shape");
    if (!shape || kernel.empty() || shape->size() != kernel.size() + 2) return true;
    const Shape strides = node.numbers("strides");
    const Shape dilations = node.numbers("dilations");
    for (size_t i = 0; i < kernel.size(); ++i) {
        const int64_t size = (*shape)[i + 2];
        const int64_t stride = i < strides.size() ? strides[i] : 1;
        const int64_t dilation = i < dilations.size() ? dilations[i] : 1;
        if (std::min({size, stride, dilation, kernel[i]}) < 1 || std::max({size, stride, dilation, kernel[i]}) > kMost)
            return true;
        const int64_t span = (kernel[i] - 1) * dilation + 1;
        const int64_t padding = ((size + stride - 1) / stride - 1) * stride + span - size;
        if (padding > 0 && padding % 2 != 0) return true;
    }
    return false;
}

bool countsPadding(const OnnxNode& node) {
    return node.number("count_include_pad", 0) != 0 && (hasPads(node) || isAutoPadded(node));
}

// Whether the last window of a dimension has no element of the input, or may have none, or is left out.
bool endsBeyondInput(const OnnxNode& node) {
    if (node.number("ceil_mode", 0) == 0) return false;
    if (node.text("auto_pad", "NOTSET") == "VALID") return true;
    const auto shape = node.inputShape(0);
    const Shape kernel = node.numbers("kernel_shape");
    const Shape strides = node.numbers("strides");
    const Shape pads = node.numbers("pads");
    for (size_t i = 0; i < kernel.size(); ++i) {
        const int64_t stride = i < strides.size() ? strides[i] : 1;
        const int64_t before = i < pads.size() ? pads[i] : 0;
        const int64_t after = i + kernel.size() < pads.size() ? pads[i + kernel.size()] : 0;
        if (after <= kernel[i] - stride) continue;
        if (!shape || shape->size() != kernel.size() + 2 || (*shape)[i + 2] < 1) return true;
        const int64_t size = (*shape)[i + 2];
        if (std::max({size, before, after}) > kMost || std::min(before, after) < 0) return true;
        const int64_t steps = (size + before + after - kernel[i] + stride - 1) / stride;
        if (steps * stride >= size + before) return true;
    }
    return false;
}

bool isPaddedAtOneEnd(const OnnxNode& node) {
    const Shape pads = node.numbers("pads");
    const size_t half = pads.size() / 2;
    return half != 2 && !std::equal(pads.begin(), pads.begin() + static_cast<ptrdiff_t>(half),
                                    pads.begin() + static_cast<ptrdiff_t>(half));
}

bool isOtherConvTranspose(const OnnxNode& node) {
    const auto shape = node.inputShape(0);
    return node.attribute("output_shape") != nullptr || isAutoPadded(node) || !isSingle(node.numbers("dilations")) ||
           !shape || shape->size() != 4;
}

// Activations and norms

// One slope for each channel, or one for all. Before version 7 of the operators, a list was one for each channel.
bool hasOtherSlopes(const OnnxNode& node) {
    if (!node.isConstant(1)) return false;
    const auto shape = node.inputShape(0);
    const auto slope = node.inputShape(1);
    if (!slope) return true;
    if (isSingle(*slope) || (slope->size() == 1 && node.operatorSet() < 7)) return false;
    if (!shape || slope->size() > shape->size() || slope->size() + 1 < shape->size()) return true;
    for (size_t i = 0; i < slope->size(); ++i) {
        if ((*slope)[i] != 1 && shape->size() - slope->size() + i != 1) return true;
    }
    return false;
}

// Recurrent networks

bool isOtherGru(const OnnxNode& node) {
    return node.number("linear_before_reset", 0) != 1 || node.text("direction", "forward") != "forward" ||
           node.attribute("clip") != nullptr || node.number("layout", 0) != 0 || node.hasInput(4) ||
           !node.consumers(1).empty();
}

bool isOtherLstm(const OnnxNode& node) {
    return node.hasInput(7) || node.number("input_forget", 0) != 0 || node.attribute("clip") != nullptr ||
           node.number("layout", 0) != 0 ||
           (node.text("direction", "forward") == "reverse" && (node.hasOutput(1) || node.hasOutput(2)));
}

// Resizing

bool isNearest(const OnnxNode& node) { return node.text("mode", "nearest") == "nearest"; }

std::string coordinatesOf(const OnnxNode& node) {
    if (node.type() == "Upsample" || node.operatorSet() < 11) return "asymmetric";
    return node.text("coordinate_transformation_mode", "half_pixel");
}

// By how much each dimension grows; nothing where it can't be known, or a size is not what the growth says.
std::optional<std::vector<double>> growthOf(const OnnxNode& node) {
    const auto from = node.inputShape(0);
    std::vector<float> factors = node.attribute("scales") != nullptr
                                     ? node.reals("scales")
                                     : node.constantReals(node.operatorSet() < 11 ? 1 : 2);
    std::vector<double> growth(factors.begin(), factors.end());
    if (growth.empty()) {
        const auto to = node.outputShape(0);
        if (!from || !to || from->size() != to->size()) return std::nullopt;
        for (size_t i = 0; i < from->size(); ++i) {
            const bool isOpen = (*from)[i] < 1 || (*to)[i] < 1;
            if (isOpen && (*from)[i] != (*to)[i]) return std::nullopt;
            growth.push_back(isOpen ? 1 : static_cast<double>((*to)[i]) / static_cast<double>((*from)[i]));
        }
        return growth;
    }
    for (size_t i = 0; i < growth.size(); ++i) {
        if (growth[i] == std::floor(growth[i])) continue;
        if (!from || i >= from->size() || (*from)[i] < 1) return std::nullopt;
        const double size = growth[i] * static_cast<double>((*from)[i]);
        if (size != std::floor(size)) return std::nullopt;
    }
    return growth;
}

bool isNearestOfOtherKind(const OnnxNode& node) {
    if (!isNearest(node)) return false;
    const std::string from = coordinatesOf(node);
    const std::string rounding = node.operatorSet() < 11 ? "floor" : node.text("nearest_mode", "round_prefer_floor");
    const auto growth = growthOf(node);
    if (!growth) return true;
    if (from == "asymmetric" && rounding == "floor") return false;
    if (from == "align_corners" && rounding == "round_prefer_ceil") return false;
    const bool isCentred =
        isAmong(from, "half_pixel pytorch_half_pixel") && isAmong(rounding, "round_prefer_floor round_prefer_ceil");
    return !isCentred || !std::ranges::all_of(*growth, [](double by) { return by >= 1 && by == std::floor(by); });
}

bool isLinearOfOtherKind(const OnnxNode& node) {
    if (isNearest(node)) return false;
    const std::string from = coordinatesOf(node);
    const auto to = node.outputShape(0);
    const bool growsToOne =
        from == "pytorch_half_pixel" &&
        (!to || to->size() < 2 || std::any_of(to->begin() + 2, to->end(), [](int64_t size) { return size < 2; }));
    const auto growth = growthOf(node);
    return growsToOne || from == "tf_crop_and_resize" || !growth ||
           !std::ranges::all_of(*growth, [](double by) { return by >= 1; });
}

bool growsInRowsOrChannels(const OnnxNode& node) {
    const auto growth = growthOf(node);
    return growth && (growth->size() < 2 || (*growth)[0] != 1 || (*growth)[1] != 1);
}

// Fusing

constexpr std::string_view kArithmetic = "Add Sub Sum Mul Div Max Min";

// The channels of what comes before are the last dimension of a product, and of a sum or the like of less than four
// dimensions the first.
bool isFusedWithOtherChannels(const OnnxNode& node) {
    const auto slope = node.type() == "PRelu" ? node.inputShape(1) : std::nullopt;
    const bool hasChannels =
        node.type() == "BatchNormalization" || (node.type() == "PRelu" && !(slope && isSingle(*slope)));
    if (!hasChannels) return false;
    const auto before = node.producerOf(0);
    const auto shape = node.inputShape(0);
    return before &&
           (before->type() == "MatMul" || (isAmong(before->type(), kArithmetic) && (!shape || shape->size() < 4)));
}

int variableOf(const OnnxNode& sum) { return sum.isConstant(0) ? 1 : 0; }

// What multiplies or adds to a power is taken into its base.
bool isFusedIntoPower(const OnnxNode& node) {
    if (!isAmong(node.type(), "Add Sub Sum Mul Div Neg BatchNormalization")) return false;
    const auto before = node.producerOf(variableOf(node));
    return before && (before->type() == "Pow" || (before->type() == "Div" && before->isConstant(0)));
}

// Whether an input comes from a layer with channels, by way of sums and the like. Where the way is long, it may.
bool isOfChannels(const OnnxNode& node, int input, int steps = 16) {
    const auto before = node.producerOf(input);
    if (before && isAmong(before->type(), "BatchNormalization Conv ConvTranspose")) return true;
    return before && isAmong(before->type(), kArithmetic) &&
           (steps == 0 || isOfChannels(*before, variableOf(*before), steps - 1));
}

// A constant that is added along other dimensions is taken into the bias of such a layer, one for each channel.
bool isFusedAlongChannels(const OnnxNode& node) {
    const int variable = variableOf(node);
    if (!isAmong(node.type(), "Add Sub Sum") || !node.isConstant(1 - variable)) return false;
    const auto large = node.inputShape(variable);
    const auto small = node.inputShape(1 - variable);
    return !(large && small && liesAlong(*large, *small, 1)) && isOfChannels(node, variable);
}

constexpr EngineLimit kLimits[] = {
    {"*", "all inputs are constant, and the engine does not compute the operator while it reads the network",
     "all its inputs are constant, which crashes the engine", isConstantAndNotFolded},
    {"*", "the axis is counted from the end, and the number of dimensions is unknown",
     "the axis is counted from the end, and with an unknown number of dimensions the engine writes outside of its memory",
     hasAxisFromUnknownEnd},
    {"*", "the axis is not a dimension of the input", "the axis is not a dimension of the input", hasAxisBeyond},
    {"Add Sub Mul Div Pow", "the elements are integers", "the engine computes integers as floats", computesIntegers},
    {"Add Sub Sum Mul Div Equal Less Greater",
     "the shapes differ. Taken are: a smaller operand of a single element; for operators other than comparisons, one that "
     "has the larger operand's sizes from the second dimension on (in a sum with an initializer: from where it begins), "
     "and 1 before and after them; products and quotients of two variables of known sizes, unless the dividend is the smaller one",
     "the engine broadcasts the smaller operand along other dimensions", isBroadcastWrong},
    {"Sum", "there are more than two operands, and their shapes differ",
     "the engine broadcasts an operand along other dimensions",
     [](const OnnxNode& node) { return node.inputCount() > 2 && hasOtherShapes(node); }},
    {"Max Min", "the shapes differ, or have no dimensions", "the engine reads outside of its memory", hasOtherShapes},
    {"Max Min", "there are more than two operands, and one is constant", "the engine leaves operands out",
     [](const OnnxNode& node) { return node.inputCount() > 2 && hasConstantInput(node); }},
    {"Div Sub",
     "it ends a softmax that is written out, whose maximum and sum are not over the same single dimension, or drop it; or "
     "it divides by the ReduceL2 of the dividend, which is not over dimension 1 alone, or drops it",
     "the engine takes the nodes for one layer along another dimension", isAlongOtherAxes},
    {"Div Mul Sub", "it ends a softmax, a norm or a Mish that is written out, and a value in between has other uses",
     "the engine removes the value", dropsUsedValues},
    {"Mul", "it follows Div and Elu, and the factor and the divisor are not Constant nodes of one element",
     "the engine takes the nodes for Celu, and reads outside of its lists", isLikeCelu},
    {"Less Greater", "the first operand is constant", "the engine swaps the operands", isComparedBackwards},
    {"Cast", "it converts floats to integers or booleans", "the engine leaves the elements as they are",
     [](const OnnxNode& node) {
         return !isInteger(node.inputType(0)) && isInteger(static_cast<int>(node.number("to", 0)));
     }},
    {"Cast", "it converts bfloat16", "the engine reads the bits as another type",
     [](const OnnxNode& node) { return node.inputType(0) == TensorProto::BFLOAT16; }},
    {"Conv ConvTranspose", "the input is a constant", "the engine reads from an empty list",
     [](const OnnxNode& node) { return node.isConstant(0); }},
    {"Gemm",
     "transA is set; alpha is not 1; or with an addend: beta is not 1, or the addend's shape is neither (N) nor (1, N)",
     "the engine ignores transA, alpha and beta, and the addend's shape", isGemmWithMore},
    {"MatMul", "an operand has one dimension, and the other more than two", "the engine keeps the dimension",
     isProductWithList},
    {"Softmax LogSoftmax", "the operator set is older than 13, and a dimension after the axis is not 1",
     "the engine computes over one dimension only", isSoftmaxOfSeveralDimensions},
    {"Concat",
     "it joins an input of the network with constants, and no dimension before the axis is known to be more than 1",
     "the engine leaves uninitialised memory in place of the input", isConcatOfInputAndConstants},
    {"ReduceL1 ReduceL2 ReduceLogSum ReduceLogSumExp ReduceMax ReduceMean ReduceMin ReduceProd ReduceSum "
     "ReduceSumSquare",
     "a reduced dimension has no size before the run", "the engine assumes a size of 1", reducesOpenDimension},
    {"ReduceSum", "noop_with_empty_axes is set", "the engine ignores noop_with_empty_axes",
     [](const OnnxNode& node) { return node.number("noop_with_empty_axes", 0) != 0; }},
    {"Slice",
     "axes are an input, and counted from the end; and there are steps, less than two dimensions, or one without a size before the run",
     "the engine cuts another dimension",
     [](const OnnxNode& node) {
         const auto shape = node.inputShape(0);
         return hasNegativeAxes(node, 3) && (node.hasInput(4) || !shape || shape->size() < 2 || !isKnown(*shape));
     }},
    {"Squeeze Unsqueeze", "the axes are an input, and counted from the end", "the engine writes outside of its lists",
     [](const OnnxNode& node) { return hasNegativeAxes(node, 1); }},
    {"Gather", "the axis or an index is beyond the input", "the index is beyond the input", indexesBeyond},
    {"Gather", "the data are variable, and the index is a list", "the engine drops the dimension", dropsAxisOfIndex},
    {"Gather", "the data are variable, and the index is -1", "the engine takes no element",
     [](const OnnxNode& node) { return !node.isConstant(0) && node.constantNumbers(1) == Shape{-1}; }},
    {"Expand",
     "a dimension of size 1 is added; one without a size before the run gets one; or several grow where the first is not 1",
     "the engine leaves the dimension out, or repeats other elements", isOtherExpand},
    {"Flatten", "axis is 0, and the first dimension has no size before the run", "the engine keeps the first dimension",
     [](const OnnxNode& node) {
         const auto shape = node.inputShape(0);
         return node.number("axis", 1) == 0 && (!shape || shape->empty() || shape->front() < 0);
     }},
    {"BatchNormalization InstanceNormalization", "the channels have no size before the run",
     "the engine reads outside of its memory where there are others",
     [](const OnnxNode& node) {
         const auto shape = node.inputShape(0);
         return shape && shape->size() > 1 && (*shape)[1] < 0;
     }},
    {"Split", "an input gives the parts' sizes, and they differ, or the dimension has no size before the run",
     "the engine makes all parts of one size", splitsByInput},
    {"Shape", "a dimension has no size before the run", "the engine assumes a size of 1", asksForOpenShape},
    {"AveragePool", "count_include_pad is 1 and there is padding", "the engine never counts the padding",
     countsPadding},
    {"AveragePool MaxPool", "ceil_mode is set, and auto_pad is VALID, or the last window may lie outside of the input",
     "the engine leaves the last window out, or computes no number for it", endsBeyondInput},
    {"AveragePool MaxPool LpPool Conv ConvTranspose",
     "auto_pad is SAME_LOWER, and the padding is odd or not known before the run",
     "the engine puts the odd element of the padding at the end", isPaddedUnevenlyAtStart},
    {"Conv", "the spatial dimensions are not two, and the padding at an end differs from that at the start",
     "the engine pads both sides as at the start", isPaddedAtOneEnd},
    {"AveragePool MaxPool", "there is one spatial dimension, and the padding at its end differs from that at the start",
     "the engine pads both sides as at the start",
     [](const OnnxNode& node) { return node.numbers("pads").size() == 2 && isPaddedAtOneEnd(node); }},
    {"Transpose", "perm is left out, and the number of dimensions is unknown",
     "the engine leaves the elements in place", [](const OnnxNode& node) { return node.attribute("perm") == nullptr; }},
    {"MaxPool", "a dilation is not 1", "the engine ignores the dilation",
     [](const OnnxNode& node) { return !isSingle(node.numbers("dilations")); }},
    {"ConvTranspose",
     "output_shape is given, auto_pad is SAME_UPPER or SAME_LOWER, a dilation is not 1, or the spatial dimensions are not two",
     "the engine ignores output_shape, auto_pad and dilations, and computes two spatial dimensions",
     isOtherConvTranspose},
    {"ConvTranspose", "kernel and strides are 1, and there is padding", "the engine ignores the padding",
     [](const OnnxNode& node) {
         return isSingle(node.numbers("kernel_shape")) && isSingle(node.numbers("strides")) && hasPads(node);
     }},
    {"Conv", "auto_pad is SAME_UPPER or SAME_LOWER, and a dilation is not 1",
     "the engine pads as if there were no dilation",
     [](const OnnxNode& node) { return isAutoPadded(node) && !isSingle(node.numbers("dilations")); }},
    {"PRelu", "the slope is a constant that is neither one number nor one for each channel",
     "the engine uses its first numbers for the channels", hasOtherSlopes},
    {"BatchNormalization", "training_mode is set, or spatial is 0", "the engine ignores training_mode and spatial",
     [](const OnnxNode& node) { return node.number("training_mode", 0) != 0 || node.number("spatial", 1) == 0; }},
    {"InstanceNormalization", "the first dimension is not known to be 1", "the engine computes only the first row",
     [](const OnnxNode& node) {
         const auto shape = node.inputShape(0);
         return !shape || shape->empty() || shape->front() != 1;
     }},
    {"CumSum", "always", "the engine writes outside of its memory", [](const OnnxNode& /*node*/) { return true; }},
    {"GRU",
     "linear_before_reset is not 1, the direction is not forward, layout is 1, there are clip or sequence lengths, or a node "
     "takes the last state",
     "the engine ignores linear_before_reset, direction, clip, layout and sequence lengths, and has no last state",
     isOtherGru},
    {"LSTM",
     "there are peepholes, input_forget or clip; layout is 1; or the direction is reverse, and a last state is an output",
     "the engine ignores peepholes, input_forget, clip and layout, and gives other last states for reverse",
     isOtherLstm},
    {"Div Gemm LSTM", "a constant input is computed from constants, and has several uses",
     "the engine changes the constant in place", takesSharedConstant},
    {"Resize Upsample", "the first two dimensions change", "the engine resizes only the other dimensions",
     growsInRowsOrChannels},
    {"Resize Upsample",
     "mode is nearest. Taken are: asymmetric with floor; align_corners with round_prefer_ceil; half_pixel with "
     "round_prefer_floor or round_prefer_ceil if every dimension grows by a whole number",
     "the engine picks other elements", isNearestOfOtherKind},
    {"Resize Upsample",
     "mode is linear, and a dimension shrinks, or grows by a factor that is unknown before the run; pytorch_half_pixel "
     "to a size of 1; tf_crop_and_resize",
     "the engine weights the elements differently", isLinearOfOtherKind},
    {"DequantizeLinear QuantizeLinear QLinearConv QLinearMatMul", "always",
     "the engine reads uint8 as int8, uses one scale for all channels, and leaves memory uninitialised",
     [](const OnnxNode& /*node*/) { return true; }},
};

}  // namespace

std::span<const EngineLimit> engineLimits() { return kLimits; }

const EngineLimit* limitOf(const OnnxNode& node) {
    const auto* const found = std::find_if(std::begin(kLimits), std::end(kLimits), [&](const EngineLimit& limit) {
        return (isAmong(node.type(), limit.operators) || isAmong("*", limit.operators)) && limit.applies(node);
    });
    return found == std::end(kLimits) ? nullptr : found;
}

bool isFusedWrongly(const OnnxNode& node) {
    if (takesSharedConstant(node)) return true;  // fusing changes constants in place
    // A layer with two inputs from elsewhere forgets the activation that it was fused with.
    if (node.type() == "MatMul") return !node.isConstant(0) && !node.isConstant(1);
    // These take in what follows once more for each shape.
    if (isAmong(node.type(), "ConvTranspose InstanceNormalization MeanVarianceNormalization")) return true;
    return isFusedWithOtherChannels(node) || isFusedAlongChannels(node) || isFusedIntoPower(node);
}

}  // namespace TarnoMirelo::OpenCv
