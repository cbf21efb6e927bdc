#include "trial.h"

#include <TarnoMirelo/kit/ports.h>
#include <TarnoMirelo/kit/texts.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace TarnoMirelo::Conformance {
namespace {

constexpr uint8_t kNoResult = 0x7B;  // of which no element of a result consists

bool isPlain(const Package& package) {
    const auto isFixedFloat = [](const ModelFeatureDescriptor& port) {
        const TensorDescriptor& tensor = port.tensorDescriptor();
        return port.type() == MireloFeatureType::Tensor && port.required() && !tensor.variableShape() &&
               tensor.tensorType() == DataType::Float;
    };
    const ModelTarget& target = package.target();
    return std::all_of(target.inputs.begin(), target.inputs.end(), isFixedFloat) &&
           std::all_of(target.outputs.begin(), target.outputs.end(), isFixedFloat);
}

ModelFeatureDescriptor descriptorOf(const std::string& name) {
    return {MireloFeatureType::Tensor, true, name, "", TensorDescriptor()};
}

bool isLetter(char character) { return std::isalnum(static_cast<unsigned char>(character)) != 0; }

bool isClose(const Value& expected, size_t index, const uint8_t* found, double tolerance) {
    const size_t width = widthOf(expected.type);
    const uint8_t* const wanted = expected.bytes.data() + index * width;
    if (isInteger(expected.type)) return std::memcmp(wanted, found + index * width, width) == 0;
    const double number = readElement(expected.type, wanted);
    const double other = readElement(expected.type, found + index * width);
    if (std::isnan(number)) return std::isnan(other);
    if (std::isinf(number)) return number == other;  // which is close to nothing else
    return std::fabs(number - other) <= tolerance * std::max(1.0, std::fabs(number));
}

}  // namespace

TrickyTensor::TrickyTensor(const Value& value, Place place)
    : ITensor(value.type, value.shape), bytes_(value.bytes), place_(place) {}

void TrickyTensor::move() {
    old_ = std::move(bytes_);
    bytes_ = old_;
}

std::shared_ptr<MireloFeature> featureOver(const std::string& name, std::shared_ptr<ITensor> tensor) {
    return std::make_shared<MireloFeatureTensor>(descriptorOf(name), std::move(tensor));
}

std::shared_ptr<MireloFeature> featureOf(const Value& value) {
    auto tensor = std::make_shared<Tensor>(value.type, value.shape);
    std::copy(value.bytes.begin(), value.bytes.end(), tensor->buffer());
    return featureOver(value.name, std::move(tensor));
}

std::shared_ptr<MireloFeature> numberOf(const std::string& name) {
    const ModelFeatureDescriptor descriptor(MireloFeatureType::Int32, true, name, "", TensorDescriptor());
    return std::make_shared<MireloFeatureInt32>(descriptor, 1);
}

std::shared_ptr<MireloFeature> withoutBuffer(const Value& value) {
    return featureOver(value.name, std::make_shared<BufferWrappedTensor>(value.type, value.shape, nullptr, 0));
}

std::shared_ptr<MireloFeature> featureOf(const std::string& name, DataType type, const TensorShape& shape) {
    return featureOver(name, std::make_shared<Tensor>(type, shape));
}

Outputs featuresOf(const std::vector<Value>& values) {
    Outputs features;
    features.reserve(values.size());
    for (const Value& value : values) features.push_back(featureOf(value));
    return features;
}

Outputs roomFor(const std::vector<Value>& values) {
    Outputs features;
    for (Value value : values) {
        std::fill(value.bytes.begin(), value.bytes.end(), kNoResult);
        features.push_back(featureOf(value));
    }
    return features;
}

Outputs openRoomFor(const std::vector<Value>& values, bool isVariable) {
    Outputs features;
    for (const Value& value : values) {
        std::shared_ptr<ITensor> tensor = std::make_shared<Tensor>(value.type);
        const TensorShape open(std::vector<int64_t>(value.shape.dimension(), -1));
        if (isVariable) tensor = std::make_shared<VariableTensor>(value.type, open);
        features.push_back(featureOver(value.name, tensor));
    }
    return features;
}

void eachOverlap(const Value& one, const Value& other,
                 const std::function<void(std::shared_ptr<MireloFeature>, std::shared_ptr<MireloFeature>)>& attempt) {
    for (const Value* const value : {&one, &other}) {
        if (value->bytes.empty() || value->shape.dimension() == 0) return;  // which can't share, or can't be wrapped
    }
    std::vector<uint8_t> memory(one.bytes.size() + other.bytes.size());
    const auto featureAt = [&](const Value& value, size_t offset) {
        uint8_t* const buffer = memory.data() + offset;
        std::copy(value.bytes.begin(), value.bytes.end(), buffer);
        return featureOver(value.name,
                           std::make_shared<BufferWrappedTensor>(value.type, value.shape, buffer, value.bytes.size()));
    };
    // The last place in the memory of a value where elements of any type may begin.
    const auto last = [](const Value& value) { return (value.bytes.size() - 1) / 8 * 8; };
    const std::pair<size_t, size_t> offsets[] = {{0, 0}, {last(other), 0}, {0, last(one)}};
    for (const auto& [ofOne, ofOther] : offsets) {
        SCOPED_TRACE("memory shared from byte " + std::to_string(ofOne) + " and from byte " + std::to_string(ofOther));
        attempt(featureAt(one, ofOne), featureAt(other, ofOther));
    }
}

Features featuresOf(const Case& each) { return {featuresOf(each.inputs), roomFor(each.outputs)}; }

Value converted(const Value& value, DataType type) {
    Value other = value;
    other.type = type;
    other.bytes.assign(value.size() * widthOf(type), 0);
    for (size_t i = 0; i < value.size(); ++i) {
        const double number = readElement(value.type, value.bytes.data() + i * widthOf(value.type));
        writeElement(type, number, other.bytes.data() + i * widthOf(type));
    }
    return other;
}

bool haveSameShapes(const Case& one, const Case& other) {
    return std::equal(one.inputs.begin(), one.inputs.end(), other.inputs.begin(), other.inputs.end(),
                      [](const Value& a, const Value& b) { return a.shape == b.shape; });
}

void write(const std::vector<Value>& values, const Outputs& features) {
    for (size_t i = 0; i < values.size(); ++i) {
        std::copy(values[i].bytes.begin(), values[i].bytes.end(), features[i]->asTensor()->buffer());
    }
}

MireloStatus run(const std::string& operation, const MireloModel& model, const Outputs& inputs, Outputs& outputs,
                 Binding& binding) {
    const MireloModel::Inputs given(inputs.begin(), inputs.end());
    if (operation == "bind") return model.bind(given, outputs, binding);
    return operation == "predict" ? model.predict(given, outputs) : model.predictBatch(given, outputs);
}

Snapshot::Held Snapshot::look(const std::shared_ptr<MireloFeature>& feature) {
    Held held;
    held.feature = feature;
    try {
        if (feature != nullptr) held.tensor = feature->asTensor();
    } catch (const InvalidTypeException&) {  // it holds no tensor that could change
    }
    if (held.tensor == nullptr) return held;
    held.shape = held.tensor->shape();
    held.buffer = std::as_const(*held.tensor).buffer();
    const auto bytes = Kit::byteCount(held.tensor->dataType(), held.shape);
    if (held.buffer != nullptr && bytes) held.bytes.assign(held.buffer, held.buffer + *bytes);
    return held;
}

Snapshot::Snapshot(const Outputs& features) {
    for (const auto& feature : features) held_.push_back(look(feature));
}

void Snapshot::expectUnchanged(const Outputs& features, const char* what) const {
    ASSERT_EQ(features.size(), held_.size()) << "The list of " << what << " has changed";
    for (size_t i = 0; i < held_.size(); ++i) {
        const Held& before = held_[i];
        const Held now = look(features[i]);
        const bool sameObjects =
            now.feature == before.feature && now.tensor == before.tensor && now.buffer == before.buffer;
        EXPECT_TRUE(sameObjects) << "The list of " << what << " has another feature, tensor or buffer at index " << i;
        EXPECT_TRUE(now.shape == before.shape) << "The shape of " << what << " " << i << " was "
                                               << Kit::toText(before.shape) << ", is now " << Kit::toText(now.shape);
        EXPECT_TRUE(now.bytes == before.bytes) << "The elements of " << what << " " << i << " have changed";
    }
}

bool names(const std::string& text, const std::string& name) {
    for (size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + 1)) {
        const size_t end = at + name.size();
        if ((at == 0 || !isLetter(text[at - 1])) && (end == text.size() || !isLetter(text[end]))) return true;
    }
    return false;
}

Trial::Trial(const Backend& backend, const Row& row)
    : backend_(backend), row_(row), device_(std::make_shared<Device>("device", backend.modelType)) {
    if (!backend.makeModel) throw std::runtime_error("the description has no makeModel");
    if (backend.packages.empty()) throw std::runtime_error("the description has no packages");
    if (!takes(ComponentKind::File) && !takes(ComponentKind::MemoryStream)) {
        throw std::runtime_error("the description has none of the kinds file and memory_stream");
    }
    for (const std::string& name : backend.packages) {
        packages_.push_back(readPackage(backend.packageFolder, name, backend.modelType));
        auto& target = std::get<ModelTarget>(packages_.back().components);
        if (takes(ComponentKind::File)) continue;
        for (ModelComponent& component : target.components) {
            component.buffer = FileUtils().readBinaryFileToByteVector(
                Filepath(packages_.back().folder()).append(Filepath(component.path)));
            component.type = ComponentKind::MemoryStream;
        }
    }
    plain();
}

const Package& Trial::plain() const {
    if (const Package* const package = plainWith(1, 1)) return *package;
    throw std::runtime_error("no package has fixed shapes, and inputs and outputs of floats");
}

const Package* Trial::plainWith(size_t inputs, size_t outputs) const {
    const auto found = std::find_if(packages_.begin(), packages_.end(), [&](const Package& package) {
        return isPlain(package) && package.target().inputs.size() >= inputs &&
               package.target().outputs.size() >= outputs;
    });
    return found == packages_.end() ? nullptr : &*found;
}

std::shared_ptr<MireloModel> Trial::make(const std::string& name) const { return backend_.makeModel(name, device_); }

std::shared_ptr<MireloModel> Trial::loaded(const Package& package) const { return loaded(backend_.makeModel, package); }

std::shared_ptr<MireloModel> Trial::loaded(const MakeModel& make, const Package& package) const {
    auto model = make("model", device_);
    load(*model, package.components);
    return model;
}

void Trial::load(MireloModel& model, const MireloModel::Components& components) {
    expectSuccess(model.load(components), "load");
}

bool Trial::takes(const char* componentKind) const {
    const std::vector<std::string>& kinds = backend_.componentKinds;
    return std::find(kinds.begin(), kinds.end(), componentKind) != kinds.end();
}

std::vector<const char*> Trial::rowOperations() const {
    return backend_.binds ? std::vector<const char*>{"predict", "bind"} : std::vector<const char*>{"predict"};
}

std::vector<const char*> Trial::operations() const {
    std::vector<const char*> all = rowOperations();
    all.push_back("predictBatch");
    return all;
}

void Trial::expectRefused(const MireloStatus& status, const std::string& named) const {
    EXPECT_EQ(Kit::toText(status.getCode()), Kit::toText(row_.status)) << "described: " << status.getDescription();
    const std::string description = status.getDescription();
    EXPECT_FALSE(description.empty()) << "The description is empty, wanted is one that says why";
    EXPECT_TRUE(named.empty() || names(description, named))
        << "The description is: " << description << "\nwanted is one that names \"" << named << "\"";
}

void Trial::expectSuccess(const MireloStatus& status, const std::string& operation) {
    EXPECT_TRUE(status.ok()) << operation << " answers " << Kit::describe(status) << "\nwanted is SUCCESS";
}

std::string Trial::compare(const Outputs& outputs, const std::vector<Value>& expected) const {
    if (outputs.size() != expected.size()) {
        return "There are " + std::to_string(outputs.size()) + " outputs, wanted are " +
               std::to_string(expected.size());
    }
    for (size_t i = 0; i < expected.size(); ++i) {
        const Value& value = expected[i];
        if (outputs[i] == nullptr) return "Output " + std::to_string(i) + " is null";
        const std::string name = outputs[i]->featureDescriptor().name();
        if (name != value.name) {
            return "Output " + std::to_string(i) + " is \"" + name + "\", wanted is \"" + value.name + "\"";
        }
        const std::shared_ptr<const ITensor> tensor = std::as_const(*outputs[i]).asTensor();
        if (tensor == nullptr || tensor->buffer() == nullptr) return "Output \"" + name + "\" has no tensor or buffer";
        if (tensor->dataType() != value.type || tensor->shape() != value.shape) {
            return "Output \"" + name + "\" is " + Kit::toText(tensor->dataType()) + " " +
                   Kit::toText(tensor->shape()) + ", wanted is " + Kit::toText(value.type) + " " +
                   Kit::toText(value.shape);
        }
        for (size_t element = 0; element < value.size(); ++element) {
            if (isClose(value, element, tensor->buffer(), backend_.tolerance)) continue;
            const size_t offset = element * widthOf(value.type);
            return "Output \"" + name + "\": element " + std::to_string(element) + " is " +
                   std::to_string(readElement(value.type, tensor->buffer() + offset)) + ", wanted is " +
                   std::to_string(readElement(value.type, value.bytes.data() + offset));
        }
    }
    return {};
}

void Trial::expectResults(const Outputs& outputs, const std::vector<Value>& expected) const {
    const std::string difference = compare(outputs, expected);
    EXPECT_TRUE(difference.empty()) << difference;
}

void Trial::expectPredicts(const MireloModel& model, const Case& each) const {
    SCOPED_TRACE("predict of case " + each.name);
    Outputs outputs;
    expectSuccess(model.predict(featuresOf(each).constInputs(), outputs), "predict");
    expectResults(outputs, each.outputs);
}

void Trial::expectPredicts(const MireloModel& model, const Package& package) const {
    SCOPED_TRACE("package " + package.name);
    for (const Case& each : package.cases) expectPredicts(model, each);
}

void Trial::expectRefusedBy(const char* operation, const MireloModel& model, Features features,
                            const std::string& named, Found found) const {
    SCOPED_TRACE(std::string(operation) + (features.outputs.empty() ? " without outputs" : " with outputs"));
    const Snapshot inputs(features.inputs);
    const Snapshot outputs(features.outputs);
    Binding binding;
    MireloStatus status = run(operation, model, features.inputs, features.outputs, binding);
    if (found == Found::ByTheRun && binding != nullptr) {
        status = model.evaluate(binding);
        binding.reset();
    }
    expectRefused(status, named);
    inputs.expectUnchanged(features.inputs, "inputs");
    outputs.expectUnchanged(features.outputs, "outputs");
    EXPECT_EQ(binding, nullptr) << "There is a binding, although bind has failed";
}

std::vector<Place> Trial::inputs() const { return places(&Features::inputs); }
std::vector<Place> Trial::outputs() const { return places(&Features::outputs); }

std::vector<Place> Trial::places(Outputs Features::*list) const {
    const bool areInputs = list == &Features::inputs;
    std::vector<Place> found;
    for (const Package& package : packages_) {
        const ModelTarget& target = package.target();
        const bool isOfOwnForm =
            !isPlain(package) || &package == plainWith(target.inputs.size(), target.outputs.size());
        if (!isOfOwnForm) continue;  // loads take their time
        const std::vector<ModelFeatureDescriptor>& ports = areInputs ? target.inputs : target.outputs;
        const std::vector<Value>& values = areInputs ? package.fullCase().inputs : package.fullCase().outputs;
        for (size_t i = 0; i < values.size(); ++i) {
            const auto port = std::find_if(ports.begin(), ports.end(), [&](const ModelFeatureDescriptor& each) {
                return each.name() == values[i].name;
            });
            found.push_back({package, list, i, values[i], *port});
        }
    }
    return found;
}

void Trial::expectRefuses(const std::vector<const char*>& operations, const Package& package, const Features& whole,
                          const std::string& named, const Damage& damage, Found found) {
    SCOPED_TRACE("package " + package.name);
    if (refused_ != &package) refusing_ = loaded(package);
    refused_ = &package;
    const MireloModel& model = *refusing_;
    Features features = whole;
    damage(features);
    for (const char* const operation : operations) {
        expectRefusedBy(operation, model, features, named, found);
        if (features.outputs != whole.outputs) continue;  // the outputs are what is wrong
        expectRefusedBy(operation, model, {features.inputs, {}}, named);
    }
    expectPredicts(model, package.cases.back());
}

void Trial::expectRefuses(const Package& package, const std::string& named, const Damage& damage) {
    expectRefuses(rowOperations(), package, featuresOf(package.fullCase()), named, damage);
}

void Trial::expectRefusesBatch(const Package& package, const std::string& named, const Damage& damage) {
    Features features = featuresOf(package.fullCase());
    const Features second = featuresOf(package.rows().back());
    features.inputs.insert(features.inputs.end(), second.inputs.begin(), second.inputs.end());
    features.outputs.insert(features.outputs.end(), second.outputs.begin(), second.outputs.end());
    expectRefuses({"predictBatch"}, package, features, named, damage);
}

void Trial::expectRefusesAt(const Place& place, const std::shared_ptr<MireloFeature>& feature, Found found) {
    const std::string name = place.value.name;
    SCOPED_TRACE("at \"" + name + "\"");
    const std::string named = feature == nullptr ? "" : name;
    expectRefuses(
        rowOperations(), place.package, featuresOf(place.package.fullCase()), named,
        [&](Features& features) { (features.*place.list)[place.index] = feature; }, found);
    if (found == Found::ByTheRun) return;
    expectRefusesBatch(place.package, named, [&](Features& features) {
        Outputs& list = features.*place.list;
        list[list.size() / 2 + place.index] = feature;
    });
}

}  // namespace TarnoMirelo::Conformance
