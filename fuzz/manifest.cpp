// Bytes as a manifest: loading ends with a documented status, what was loaded is consistent, and its inputs are
// allocated until memory runs out. The kit's check keeps its promises: what is refused has an error, and what has no
// finding is kept.

#include "support/manifest_promises.h"
#include "support/memory_budget.h"
#include "support/require.h"
#include "support/scripted_model.h"
#include "support/temp_dir.h"

#include <TarnoMirelo/kit/targets.h>

#include <string>
#include <vector>

namespace TarnoMirelo {
namespace {

constexpr int64_t kBudget = int64_t{16} << 20;  // far more than any manifest here takes, far less than it can ask for

bool fewerThanOneElement(const ModelFeatureDescriptor& input) {
    uint64_t count = 1;
    for (const int64_t dimension : input.tensorDescriptor().shape().shapeVector()) {
        require(dimension == static_cast<int32_t>(dimension), "dimensions fit in 32 bits");
        count *= static_cast<uint64_t>(dimension);
    }
    return static_cast<int64_t>(count) < 1;
}

void checkNames(const std::vector<ModelFeatureDescriptor>& features, const std::vector<std::string>& names) {
    require(features.size() == names.size(), "there is a name for every feature");
    for (size_t i = 0; i < names.size(); ++i)
        require(features[i].name() == names[i], "names are those of the features");
}

void checkAllocation(const ModelTarget& target, const MireloStatus& status, const MireloModel::Outputs& inputs,
                     const MemoryBudget& budget) {
    require(inputs.size() <= target.inputs.size(), "there are no more inputs than the manifest has");
    for (const auto& input : inputs) {
        const std::shared_ptr<ITensor> tensor = input->asTensor();
        require((tensor->buffer() == nullptr) == tensor->hasVariableShape(), "a fixed shape has its buffer at once");
        if (tensor->buffer() == nullptr || tensor->bytes() == 0) continue;
        uint8_t& last = tensor->buffer()[tensor->bytes() - 1];
        require(last == 0, "a buffer is zero");
        last = 1;
    }
    if (status.ok()) return require(inputs.size() == target.inputs.size(), "success means all inputs");
    const ModelFeatureDescriptor& refused = target.inputs.at(inputs.size());
    if (status.getCode() == INVALID_TYPE) {
        return require(refused.type() != MireloFeatureType::Tensor, "a tensor is a type for inputs");
    }
    require(status.getCode() == UNKNOWN_ERROR, "the status is a documented one");
    require(budget.refusals() > 0 || status.getDescription() == "A tensor buffer of this size cannot be allocated",
            "the status says why");
}

void checkLoaded(ModelMetadata& metadata) {
    const bool there = metadata.getTargets().contains(MireloModelType::WinML);
    require(metadata.getTargets().size() == static_cast<size_t>(there), "only the one target is read");
    const MireloStatus valid = metadata.validate(MireloModelType::WinML);
    ScriptedModel model("model", MireloModelType::WinML);
    try {
        const auto components = metadata.getModelCompoents(MireloModelType::WinML);
        const auto& target = std::get<ModelTarget>(components);
        require(there, "a target that is handed out is there");
        checkNames(target.inputs, target.inputNames);
        checkNames(target.outputs, target.outputNames);
        const bool good = !target.inputs.empty() && !target.outputs.empty() && !fewerThanOneElement(target.inputs[0]);
        require(valid.ok() == good, "validation tells good targets from others");
        require(model.load(components).ok() == !target.components.empty(), "a model needs components only");
    } catch (const std::out_of_range&) {
        require(!there && !valid.ok(), "only an absent target raises");
    }
    const MemoryBudget budget(kBudget);
    MireloModel::Outputs inputs;
    const MireloStatus status = model.allocateInputs(inputs);
    checkAllocation(model.getModelTarget(), status, inputs, budget);
}

}  // namespace
}  // namespace TarnoMirelo

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace TarnoMirelo;
    static const TempDir scratch;
    const Filepath path = scratch.write("manifest.json", {reinterpret_cast<const char*>(data), size});
    int64_t needed = 0;
    {
        ModelMetadata metadata;
        MireloStatus status;
        {
            const MemoryBudget budget(kBudget);
            status = metadata.load(path);
            needed = budget.allocated();
        }
        require(status.ok() || status.getCode() == MODEL_METADATA_ERROR, "a manifest loads or is refused");
        Kit::AllTargetsMetadata all;
        require(all.load(path).getCode() == status.getCode(), "with all targets a manifest loads as with one");
        require(
            all.getTargets().contains(MireloModelType::WinML) == metadata.getTargets().contains(MireloModelType::WinML),
            "the core's own target is there as without them");
        const std::string broken = brokenPromise({reinterpret_cast<const char*>(data), size}, path);
        require(broken.empty(), broken.c_str());
        checkLoaded(metadata);
        require(metadata.load(path).getCode() == status.getCode(), "loading again ends as before");
    }
    // With some part of the memory that it takes.
    const MemoryBudget budget(size == 0 ? 0 : needed * data[size - 1] / 256);
    ModelMetadata metadata;
    const STATUS_CODE code = metadata.load(path).getCode();
    require(code == SUCCESS || code == MODEL_METADATA_ERROR || (code == UNKNOWN_ERROR && budget.refusals() > 0),
            "running out of memory is reported");
    require(metadata.getTargets().size() <= 1, "what was loaded stands");
    return 0;
}
