#include "prediction.h"

#include "failure.h"
#include "keys.h"
#include "npy.h"

#include <TarnoMirelo/kit/components.h>
#include <TarnoMirelo/kit/ports.h>
#include <TarnoMirelo/kit/texts.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <random>

namespace TarnoMirelo::Tool {
namespace {

constexpr uint64_t kIntegers = 10;  // small enough to be an index in most networks

// Half precision of that many 1024ths, from 0 to 1023, which is exact.
uint16_t toHalf(uint64_t parts) {
    if (parts == 0) return 0;
    uint64_t exponent = 15;  // of 1
    for (; (parts & 0x400U) == 0; parts <<= 1U) --exponent;
    return static_cast<uint16_t>((exponent << 10U) | (parts & 0x3FFU));
}

template <typename Element, typename Next>
void fill(ITensor& tensor, const Next& next) {
    auto* const elements = reinterpret_cast<Element*>(tensor.buffer());
    std::generate(elements, elements + tensor.shape().size(), [&] { return static_cast<Element>(next()); });
}

// The generator's numbers are the standard's; those of its distributions are not.
void fillRandomly(ITensor& tensor, std::mt19937_64& random) {
    const auto integer = [&] { return random() % kIntegers; };
    const auto fraction = [&] { return static_cast<double>(random() >> 40U) * 0x1p-24; };
    switch (tensor.dataType()) {
        case DataType::Bool:
            return fill<uint8_t>(tensor, [&] { return random() % 2; });
        case DataType::Int8:
        case DataType::UInt8:
            return fill<uint8_t>(tensor, integer);
        case DataType::Int16:
        case DataType::UInt16:
            return fill<uint16_t>(tensor, integer);
        case DataType::Int32:
        case DataType::UInt32:
            return fill<uint32_t>(tensor, integer);
        case DataType::Int64:
        case DataType::UInt64:
            return fill<uint64_t>(tensor, integer);
        case DataType::Float16:
            return fill<uint16_t>(tensor, [&] { return toHalf(random() >> 54U); });
        case DataType::Float:
            return fill<float>(tensor, fraction);
        case DataType::Double:
            return fill<double>(tensor, fraction);
        case DataType::Undefined:
            break;
    }
}

}  // namespace

// The backends would say that the key is zero.
std::string missingKeyOf(const ModelTarget& target) {
    for (const ModelComponent& component : target.components) {
        if (!component.type.starts_with("secured_")) continue;
        return "component \"" + component.name + "\" is protected, wanted is its key: --key-file FILE";
    }
    return "";
}

MireloModel::Components runnableTarget(const Package& package, const std::string& keyFile, ModelMetadata& metadata) {
    const Kit::SecretBytes key = readKeyIfNamed(keyFile);
    package.load(metadata);
    MireloStatus status = metadata.validate(MireloModelType::WinML);
    if (!status.ok() && status.getDescription().empty()) status.setDescription("there is no target \"WinML\"");
    if (status.ok() && key.size() != 0) status = Kit::setProtectionKey(metadata, MireloModelType::WinML, key.data());
    require(package.manifestText(), status);
    MireloModel::Components components = metadata.getModelCompoents(MireloModelType::WinML);
    const std::string missing = key.size() == 0 ? missingKeyOf(std::get<ModelTarget>(components)) : "";
    if (!missing.empty()) throw Failure(package.manifestText() + ": " + missing);
    return components;
}

namespace {

[[noreturn]] void refuseValue(const std::string& option, const std::string& value, const std::string& wanted) {
    throw WrongUsage(option + " \"" + value + "\": wanted " + wanted);
}

std::string namesOf(const std::vector<ModelFeatureDescriptor>& features) {
    std::string names;
    for (const ModelFeatureDescriptor& feature : features) {
        if (!names.empty()) names += ", ";
        names += feature.name();
    }
    return names;
}

}  // namespace

NamedValues parseNamedValues(const std::string& option, const std::vector<std::string>& values,
                             const std::vector<ModelFeatureDescriptor>& inputs) {
    const auto isInput = [&inputs](const std::string& name) {
        return std::any_of(inputs.begin(), inputs.end(),
                           [&name](const ModelFeatureDescriptor& input) { return input.name() == name; });
    };
    NamedValues parsed;
    for (const std::string& value : values) {
        const size_t first = value.find('=');
        if (first == std::string::npos || first == 0 || value.back() == '=') {
            refuseValue(option, value, "is NAME=VALUE");
        }
        // Names and files may have more of them.
        size_t equals = value.rfind('=');
        while (equals != first && !isInput(value.substr(0, equals))) equals = value.rfind('=', equals - 1);
        const std::string name = value.substr(0, equals);
        if (!isInput(name)) throw Failure("there is no input \"" + name + "\", wanted is one of " + namesOf(inputs));
        if (!parsed.emplace(name, value.substr(equals + 1)).second) {
            throw WrongUsage(option + ": \"" + value.substr(0, equals) + "\" is given twice");
        }
    }
    return parsed;
}

TensorShape parseShape(const std::string& option, const std::string& text) {
    std::vector<int64_t> dimensions;
    const char* at = text.data();
    const char* const end = at + text.size();
    for (bool more = !text.empty(); more;) {
        int64_t dimension = -1;
        const auto [behind, error] = std::from_chars(at, end, dimension);
        more = behind != end;
        if (error != std::errc() || dimension < 0 || (more && *behind != ',')) {
            refuseValue(option, text, "are dimensions as in 1,3,224,224");
        }
        dimensions.push_back(dimension);
        at = behind + (more ? 1 : 0);
    }
    return {dimensions};
}

namespace {

// @param random  null: of zeros
std::shared_ptr<MireloFeature> generateInput(const ModelFeatureDescriptor& descriptor, const NamedValues& shapes,
                                             std::mt19937_64* random) {
    const std::string about = "Input \"" + descriptor.name() + "\": ";
    if (descriptor.type() != MireloFeatureType::Tensor) {
        throw Failure(about + "it is of type " + GetMireloFeatureTypeName(descriptor.type()) + ", wanted is a tensor");
    }
    const TensorShape wanted = descriptor.tensorDescriptor().shape();
    const DataType type = descriptor.tensorDescriptor().tensorType();
    TensorShape shape = wanted;
    if (const auto given = shapes.find(descriptor.name()); given != shapes.end()) {
        shape = parseShape("--shape", given->second);
    } else {
        for (uint64_t i = 0; i < shape.dimension(); ++i) shape[i] = shape[i] == -1 ? 1 : shape[i];
    }
    if (!Kit::fits(shape, wanted)) {
        throw Failure(about + "the shape is " + Kit::toText(shape) + ", wanted is " + Kit::toText(wanted));
    }
    if (type == DataType::Undefined || !Kit::byteCount(type, shape)) {
        throw Failure(about + "the manifest says no element type and shape that a tensor can be made of");
    }
    auto tensor = std::make_shared<Tensor>(type, shape);
    if (random != nullptr) fillRandomly(*tensor, *random);
    return std::make_shared<MireloFeatureTensor>(descriptor, std::move(tensor));
}

}  // namespace

MireloModel::Inputs makeInputs(const ModelTarget& target, const NamedValues& files,
                               const std::optional<Filling>& filling, std::string& missing) {
    for (const auto& [name, file] : files) {
        if (!filling || !filling->shapes.contains(name)) continue;
        throw Failure(
            std::string("Input \"").append(name).append("\": --shape is for inputs without a file, and ").append(file) +
            " has a shape");
    }
    // One for all of them: inputs of the same numbers would hide what a network makes of each.
    std::optional<std::mt19937_64> random;
    if (filling && filling->seed) random.emplace(*filling->seed);
    MireloModel::Inputs inputs;
    for (const ModelFeatureDescriptor& descriptor : target.inputs) {
        if (const auto file = files.find(descriptor.name()); file != files.end()) {
            inputs.push_back(std::make_shared<MireloFeatureTensor>(descriptor, readNpy(toPath(file->second))));
        } else if (filling) {
            inputs.push_back(generateInput(descriptor, filling->shapes, random ? &*random : nullptr));
        } else if (descriptor.required()) {
            missing += (missing.empty() ? "" : ", ") + descriptor.name();
        }
    }
    return inputs;
}

}  // namespace TarnoMirelo::Tool
