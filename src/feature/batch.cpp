#include <TarnoMirelo/feature.h>

#include <algorithm>
#include <numeric>
#include <stdexcept>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace TarnoMirelo {

const std::string& MireloBatch::nameOf(const std::shared_ptr<const MireloFeature>& feature) {
    if (feature == nullptr) throw InvalidArgumentsException("A feature of a batch must not be null");
    return feature->descriptor_.name_;
}

MireloBatch::MireloBatch(std::vector<std::shared_ptr<const MireloFeature>> features) : features_(std::move(features)) {
    if (features_.empty()) return;
    const std::string& first = nameOf(features_.front());
    size_t width = 1;
    while (width < features_.size() && nameOf(features_[width]) != first) ++width;
    if (!indexNames(width) || !repeatsFirstRow()) arrangeRows();
}

bool MireloBatch::isBatch(const std::vector<std::shared_ptr<const MireloFeature>>& features) {
    std::unordered_set<std::string_view> names;
    for (const auto& feature : features) {
        if (!names.insert(nameOf(feature)).second) return true;
    }
    return false;
}

bool MireloBatch::indexNames(size_t width) {
    byName_.resize(width);
    std::iota(byName_.begin(), byName_.end(), size_t{0});
    const auto name = [this](size_t place) -> const std::string& { return nameOf(features_[place]); };
    std::sort(byName_.begin(), byName_.end(), [&](size_t a, size_t b) { return name(a) < name(b); });
    const auto isSame = [&](size_t a, size_t b) { return name(a) == name(b); };
    return std::adjacent_find(byName_.begin(), byName_.end(), isSame) == byName_.end();
}

bool MireloBatch::repeatsFirstRow() const {
    const size_t width = byName_.size();
    if (features_.size() % width != 0) return false;
    for (auto row = features_.begin(); row != features_.end(); row += static_cast<ptrdiff_t>(width)) {
        const bool same = std::equal(features_.begin(), features_.begin() + static_cast<ptrdiff_t>(width), row,
                                     [](const auto& a, const auto& b) { return nameOf(a) == nameOf(b); });
        if (!same) return false;
    }
    return true;
}

void MireloBatch::arrangeRows() {
    std::unordered_map<std::string_view, size_t> places;
    std::vector<std::vector<std::shared_ptr<const MireloFeature>>> groups;
    for (const auto& feature : features_) {
        const auto [found, isNew] = places.try_emplace(nameOf(feature), groups.size());
        if (isNew) groups.emplace_back();
        groups[found->second].push_back(feature);
    }
    const size_t rows = groups.front().size();
    for (const auto& group : groups) {
        if (group.size() != rows) throw Exception("An uneven number of batches per input", INVALID_TYPE);
    }
    features_.clear();
    for (size_t row = 0; row < rows; ++row) {
        for (auto& group : groups) features_.push_back(std::move(group[row]));
    }
    indexNames(groups.size());
}

MireloFeatureSet MireloBatch::getFeatureSet() const {
    MireloFeatureSet set;
    if (features_.empty()) return set;
    const auto width = static_cast<ptrdiff_t>(byName_.size());
    set.features.reserve(features_.size() / byName_.size());
    for (auto row = features_.begin(); row != features_.end(); row += width)
        set.features.emplace_back(row, row + width);
    return set;
}

std::vector<std::shared_ptr<MireloFeature>> MireloBatch::getSortedFetures(
    const std::vector<ModelFeatureDescriptor>& descriptors) const {
    const size_t width = byName_.size();
    std::vector<std::shared_ptr<MireloFeature>> sorted;
    if (width != 0) sorted.reserve(descriptors.size() * (features_.size() / width));
    for (size_t i = 0; i < descriptors.size(); ++i) {
        // Mostly the features come in the order of the descriptors.
        const bool isInOrder = i < width && nameOf(features_[i]) == descriptors[i].name_;
        for (size_t place = isInOrder ? i : placeOf(descriptors[i].name_); place < features_.size(); place += width) {
            sorted.push_back(std::const_pointer_cast<MireloFeature>(features_[place]));
        }
    }
    return sorted;
}

size_t MireloBatch::placeOf(const std::string& name) const {
    const auto found =
        std::lower_bound(byName_.begin(), byName_.end(), name,
                         [this](size_t place, const std::string& wanted) { return nameOf(features_[place]) < wanted; });
    if (found == byName_.end() || nameOf(features_[*found]) != name) {
        throw std::out_of_range("The batch has no feature of that name");
    }
    return *found;
}

}  // namespace TarnoMirelo
