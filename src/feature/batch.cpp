#include <TarnoMirelo/feature.h>

#include <string_view>
#include <unordered_set>
#include <utility>

namespace TarnoMirelo {

const std::string& MireloBatch::nameOf(const std::shared_ptr<const MireloFeature>& feature) {
    if (feature == nullptr) throw InvalidArgumentsException("A feature of a batch must not be null");
    return feature->descriptor_.name_;
}

MireloBatch::MireloBatch(std::vector<std::shared_ptr<const MireloFeature>> features) {
    // Most lists repeat their first row; the second is remembered, and tells the group to come without a look-up.
    std::vector<std::pair<const std::string, Group>*> row;
    size_t place = 0;
    bool hasRoom = false;
    for (auto& feature : features) {
        const std::string& name = nameOf(feature);
        const bool isRemembered = !row.empty() && row.size() == groups_.size();
        std::pair<const std::string, Group>* group = isRemembered ? row[place] : nullptr;
        if (group == nullptr || group->first != name) {
            const auto [found, isNew] = groups_.try_emplace(name);
            group = &*found;
            if (!isNew && !isRemembered) {
                if (row.empty()) row.reserve(groups_.size());
                place = row.size();
                row.push_back(group);
            }
        } else if (place == 0 && row.size() > 1 && !std::exchange(hasRoom, true)) {  // the third row begins
            for (auto* const each : row) each->second.reserve(features.size() / row.size());
        }
        group->second.push_back(std::move(feature));
        if (++place >= row.size()) place = 0;
    }
    for (const auto& [name, group] : groups_) {
        if (group.size() != groups_.begin()->second.size()) {
            throw Exception("An uneven number of batches per input", INVALID_TYPE);
        }
    }
}

bool MireloBatch::isBatch(const std::vector<std::shared_ptr<const MireloFeature>>& features) {
    std::unordered_set<std::string_view> names;
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
    for (const auto& descriptor : descriptors) {
        for (const auto& feature : groups_.at(descriptor.name_)) {
            sorted.push_back(std::const_pointer_cast<MireloFeature>(feature));
        }
    }
    return sorted;
}

}  // namespace TarnoMirelo
