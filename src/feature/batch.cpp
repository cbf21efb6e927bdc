#include <TarnoMirelo/feature.h>

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace TarnoMirelo {
namespace {

using Features = std::vector<std::shared_ptr<const MireloFeature>>;

}  // namespace

// The features row by row, each row in the order in which the names first appeared.
class FeatureGroups {
 public:
    explicit FeatureGroups(Features features);

    size_t rowLength() const { return groups_.size(); }
    size_t rowCount() const { return features_.empty() ? 0 : features_.size() / rowLength(); }
    Features::const_iterator row(size_t index) const {
        return features_.begin() + static_cast<ptrdiff_t>(index * rowLength());
    }
    /// The position of that descriptor's name in a row; raises `std::out_of_range` where there is none.
    /// @param likely  where to look first
    size_t at(const ModelFeatureDescriptor& descriptor, size_t likely) const;

    static const std::string& nameOf(const std::shared_ptr<const MireloFeature>& feature);

 private:
    bool areInRows() const;
    void putInRows();

    Features features_;
    std::unordered_map<std::string_view, size_t> groups_;  // the position of each name in a row; the features own them
};

FeatureGroups::FeatureGroups(Features features) : features_(std::move(features)) {
    for (const auto& feature : features_) {
        if (!groups_.try_emplace(nameOf(feature), groups_.size()).second) break;
    }
    if (!areInRows()) putInRows();
}

// Most lists come in rows. Such a list stays as it is, and no name but those of the first row is hashed.
bool FeatureGroups::areInRows() const {
    const size_t length = rowLength();
    if (features_.size() == length) return true;
    if (features_.size() % length != 0) return false;
    std::vector<const std::string*> names;
    for (size_t i = 0; i < length; ++i) names.push_back(&nameOf(features_[i]));
    // Backwards: what was copied last is still in the caches.
    for (size_t i = features_.size(); i > length;) {
        for (size_t name = length; name-- > 0;) {
            if (nameOf(features_[--i]) != *names[name]) return false;
        }
    }
    return true;
}

void FeatureGroups::putInRows() {
    std::vector<size_t> positions;  // of each feature in its row
    positions.reserve(features_.size());
    for (const auto& feature : features_) {
        positions.push_back(groups_.try_emplace(nameOf(feature), groups_.size()).first->second);
    }
    std::vector<size_t> sizes(rowLength());  // of the groups so far
    Features rows(features_.size());
    for (size_t i = 0; i < features_.size(); ++i) {
        const size_t row = sizes[positions[i]]++;
        if (row >= rowCount()) break;  // this group is larger than others
        rows[row * rowLength() + positions[i]].swap(features_[i]);
    }
    const auto isWhole = [this](size_t size) { return size == rowCount(); };
    if (!std::all_of(sizes.begin(), sizes.end(), isWhole)) {
        throw Exception("An uneven number of batches per input", INVALID_TYPE);
    }
    features_ = std::move(rows);
}

size_t FeatureGroups::at(const ModelFeatureDescriptor& descriptor, size_t likely) const {
    if (likely < rowLength() && nameOf(features_[likely]) == descriptor.name_) return likely;
    const auto found = groups_.find(descriptor.name_);
    if (found == groups_.end()) throw std::out_of_range("The batch has no feature of that name");
    return found->second;
}

const std::string& FeatureGroups::nameOf(const std::shared_ptr<const MireloFeature>& feature) {
    if (feature == nullptr) throw InvalidArgumentsException("A feature of a batch must not be null");
    return feature->descriptor_.name_;
}

MireloBatch::MireloBatch(Features features) : groups_(std::make_shared<const FeatureGroups>(std::move(features))) {}

bool MireloBatch::isBatch(const Features& features) {
    std::unordered_set<std::string_view> names;
    for (const auto& feature : features) {
        if (!names.insert(FeatureGroups::nameOf(feature)).second) return true;
    }
    return false;
}

MireloFeatureSet MireloBatch::getFeatureSet() const {
    MireloFeatureSet set;
    set.features.reserve(groups_->rowCount());
    for (size_t i = 0; i < groups_->rowCount(); ++i) set.features.emplace_back(groups_->row(i), groups_->row(i + 1));
    return set;
}

std::vector<std::shared_ptr<MireloFeature>> MireloBatch::getSortedFetures(
    const std::vector<ModelFeatureDescriptor>& descriptors) const {
    // With more descriptors than names the list may take far more memory than the batch: look them all up before.
    if (descriptors.size() > groups_->rowLength()) {
        for (const ModelFeatureDescriptor& descriptor : descriptors) groups_->at(descriptor, 0);
    }
    std::vector<std::shared_ptr<MireloFeature>> sorted;
    sorted.reserve(descriptors.size() * groups_->rowCount());
    for (size_t i = 0; i < descriptors.size(); ++i) {
        const auto position = static_cast<ptrdiff_t>(groups_->at(descriptors[i], i));
        for (size_t row = 0; row < groups_->rowCount(); ++row) {
            sorted.push_back(std::const_pointer_cast<MireloFeature>(groups_->row(row)[position]));
        }
    }
    return sorted;
}

}  // namespace TarnoMirelo
