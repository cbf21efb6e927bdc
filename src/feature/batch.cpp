#include <TarnoMirelo/feature.h>

#include <unordered_set>
#include <utility>

namespace TarnoMirelo {
namespace {

std::string nameOf(const std::shared_ptr<const MireloFeature>& feature) {
    if (feature == nullptr) throw InvalidArgumentsException("A feature of a batch must not be null");
    return feature->featureDescriptor().name();
}

}  // namespace

MireloBatch::MireloBatch(std::vector<std::shared_ptr<const MireloFeature>> features) {
    for (auto& feature : features) groups_[nameOf(feature)].push_back(std::move(feature));
    for (const auto& [name, group] : groups_) {
        if (group.size() != groups_.begin()->second.size()) {
            throw Exception("An uneven number of batches per input", INVALID_TYPE);
        }
    }
}

bool MireloBatch::isBatch(const std::vector<std::shared_ptr<const MireloFeature>>& features) {
    std::unordered_set<std::string> names;
    for (const auto& feature : features) {
        if (!names.insert(nameOf(feature)).second) return true;
    }
    return false;
}

MireloFeatureSet MireloBatch::getFeatureSet() const {
    MireloFeatureSet set;
    if (groups_.empty()) return set;
    set.features.resize(groups_.begin()->second.size());
    for (auto& row : set.features) row.reserve(groups_.size());
    for (const auto& [name, group] : groups_) {
        for (size_t i = 0; i < group.size(); ++i) set.features[i].push_back(group[i]);
    }
    return set;
}

std::vector<std::shared_ptr<MireloFeature>> MireloBatch::getSortedFetures(
    const std::vector<ModelFeatureDescriptor>& descriptors) const {
    std::vector<std::shared_ptr<MireloFeature>> sorted;
    if (!groups_.empty()) sorted.reserve(descriptors.size() * groups_.begin()->second.size());
    for (const ModelFeatureDescriptor& descriptor : descriptors) {
        for (const auto& feature : groups_.at(descriptor.name())) {
            sorted.push_back(std::const_pointer_cast<MireloFeature>(feature));
        }
    }
    return sorted;
}

}  // namespace TarnoMirelo
