#include <TarnoMirelo/feature.h>

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <unordered_set>
#include <utility>

namespace TarnoMirelo {
namespace {

using Features = std::vector<std::shared_ptr<const MireloFeature>>;

[[noreturn]] void refuseNull() { throw InvalidArgumentsException("A feature of a batch must not be null"); }

}  // namespace

// A hash map from a name to its features. All of them lie in one list: that many lists, or a map of that many nodes,
// would take as long for their allocations as a small batch takes for all the rest.
class FeatureGroups {
 public:
    explicit FeatureGroups(Features features);

    size_t count() const { return names_.size(); }
    size_t rowCount() const { return rowCount_; }

    const std::shared_ptr<const MireloFeature>& feature(size_t group, size_t row) const {
        return features_[group * groupStep_ + row * rowStep_];
    }
    /// The group of that descriptor's name; raises `std::out_of_range` where there is none.
    /// @param likely  where to look first
    size_t at(const ModelFeatureDescriptor& descriptor, size_t likely) const;

    static const std::string& nameOf(const std::shared_ptr<const MireloFeature>& feature);

 private:
    bool areInRows();
    void group();
    size_t indexOf(const std::string& name);
    size_t placeOf(const std::string& name) const;
    void makePlaces(size_t count);

    Features features_;
    size_t rowCount_ = 0;
    size_t groupStep_ = 1;                   // from a feature to the next group's in the same row
    size_t rowStep_ = 1;                     // from a feature to the next row's in the same group
    std::vector<const std::string*> names_;  // of the groups, in the order in which they came; the features own them
    std::vector<size_t> places_;  // by the hash of a name, or behind: its group's index and 1; 0 where there is none
};

FeatureGroups::FeatureGroups(Features features) : features_(std::move(features)) {
    makePlaces(16);
    names_.reserve(places_.size() / 2);
    if (areInRows()) {
        rowStep_ = count();
        rowCount_ = features_.empty() ? 0 : features_.size() / count();
    } else {
        group();
        groupStep_ = rowCount_;
    }
}

// Whether each row goes through the names in the first one's order, as in most lists. Such a list stays as it is.
bool FeatureGroups::areInRows() {
    size_t first = 0;  // beyond the first row
    while (first < features_.size() && indexOf(nameOf(features_[first])) == first) ++first;
    if (first == features_.size()) return true;
    if (features_.size() % first != 0) return false;
    // From behind: what was copied last is still in the caches.
    for (size_t i = features_.size(); i > first;) {
        for (size_t name = first; name-- > 0;) {
            if (nameOf(features_[--i]) != *names_[name]) return false;
        }
    }
    return true;
}

// Puts the features into the order of their groups.
void FeatureGroups::group() {
    std::vector<size_t> indices(features_.size());  // the group of each feature
    for (size_t i = 0; i < features_.size(); ++i) indices[i] = indexOf(nameOf(features_[i]));
    std::vector<size_t> sizes(count());  // of the groups
    for (const size_t index : indices) ++sizes[index];
    rowCount_ = sizes.front();
    if (std::any_of(sizes.begin(), sizes.end(), [this](size_t size) { return size != rowCount_; })) {
        throw Exception("An uneven number of batches per input", INVALID_TYPE);
    }
    Features grouped(features_.size());
    for (size_t i = features_.size(); i-- > 0;) {
        const size_t index = indices[i];
        grouped[index * rowCount_ + --sizes[index]].swap(features_[i]);
    }
    features_ = std::move(grouped);
}

size_t FeatureGroups::at(const ModelFeatureDescriptor& descriptor, size_t likely) const {
    if (likely < names_.size() && *names_[likely] == descriptor.name_) return likely;
    const size_t index = places_[placeOf(descriptor.name_)];
    if (index == 0) throw std::out_of_range("The batch has no feature of that name");
    return index - 1;
}

// The group of that name, which is made where there is none.
size_t FeatureGroups::indexOf(const std::string& name) {
    size_t place = placeOf(name);
    if (places_[place] == 0) {
        if (2 * names_.size() >= places_.size()) {
            makePlaces(2 * places_.size());
            place = placeOf(name);
        }
        names_.push_back(&name);
        places_[place] = names_.size();
    }
    return places_[place] - 1;
}

// Where the name's group is found, or would be.
size_t FeatureGroups::placeOf(const std::string& name) const {
    const size_t mask = places_.size() - 1;
    size_t place = std::hash<std::string>()(name) & mask;
    while (places_[place] != 0 && *names_[places_[place] - 1] != name) place = (place + 1) & mask;
    return place;
}

// @param count  a power of two, twice as many as there are groups or more, so that runs of taken places are short
void FeatureGroups::makePlaces(size_t count) {
    places_.assign(count, 0);
    for (size_t i = 0; i < names_.size(); ++i) places_[placeOf(*names_[i])] = i + 1;
}

const std::string& FeatureGroups::nameOf(const std::shared_ptr<const MireloFeature>& feature) {
    if (feature == nullptr) refuseNull();
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
    set.features.resize(groups_->rowCount());
    for (size_t row = 0; row < groups_->rowCount(); ++row) {
        set.features[row].reserve(groups_->count());
        for (size_t i = 0; i < groups_->count(); ++i) set.features[row].push_back(groups_->feature(i, row));
    }
    return set;
}

std::vector<std::shared_ptr<MireloFeature>> MireloBatch::getSortedFetures(
    const std::vector<ModelFeatureDescriptor>& descriptors) const {
    std::vector<std::shared_ptr<MireloFeature>> sorted;
    sorted.reserve(descriptors.size() * groups_->rowCount());
    for (size_t i = 0; i < descriptors.size(); ++i) {
        const size_t group = groups_->at(descriptors[i], i);  // most lists begin with a row in the descriptors' order
        for (size_t row = 0; row < groups_->rowCount(); ++row) {
            sorted.push_back(std::const_pointer_cast<MireloFeature>(groups_->feature(group, row)));
        }
    }
    return sorted;
}

}  // namespace TarnoMirelo
