// Grouping the features of a batch.

#include "measure.h"

#include <TarnoMirelo/feature.h>

namespace Bench {
namespace {

using namespace TarnoMirelo;

constexpr size_t kInputs = 8;

using Features = std::vector<std::shared_ptr<const MireloFeature>>;

// Knows by its index which input a feature belongs to.
std::vector<Features> group(const Features& features) {
    std::vector<Features> groups(kInputs);
    for (Features& of : groups) of.reserve(features.size() / kInputs);
    for (size_t i = 0; i < features.size(); ++i) groups[i % kInputs].push_back(features[i]);
    return groups;
}

std::vector<Features> rowsOf(const std::vector<Features>& groups) {
    std::vector<Features> rows(groups.front().size());
    for (size_t i = 0; i < rows.size(); ++i) {
        rows[i].reserve(groups.size());
        for (const Features& of : groups) rows[i].push_back(of[i]);
    }
    return rows;
}

std::vector<std::shared_ptr<MireloFeature>> flatten(const std::vector<Features>& groups) {
    std::vector<std::shared_ptr<MireloFeature>> flat;
    flat.reserve(groups.size() * groups.front().size());
    for (const Features& of : groups) {
        for (const auto& feature : of) flat.push_back(std::const_pointer_cast<MireloFeature>(feature));
    }
    return flat;
}

void addBatch(const std::string& rowCount, size_t rows) {
    std::vector<ModelFeatureDescriptor> descriptors;
    for (size_t i = 0; i < kInputs; ++i) {
        descriptors.emplace_back(MireloFeatureType::Int64, true, "input_" + std::to_string(i), "", TensorDescriptor());
    }
    const auto features = std::make_shared<Features>();
    for (size_t i = 0; i < rows * kInputs; ++i) {
        features->push_back(std::make_shared<MireloFeatureInt64>(descriptors[i % kInputs], static_cast<int64_t>(i)));
    }
    const auto batch = std::make_shared<MireloBatch>(*features);
    const auto groups = std::make_shared<std::vector<Features>>(group(*features));
    const auto add = [&](const std::string& work, auto ours, auto limit) {
        measure("MireloBatch, " + work + ", " + rowCount, Side::Ours, [=] { benchmark::DoNotOptimize(ours()); });
        measure("MireloBatch, " + work + ", " + rowCount, Side::Limit, [=] { benchmark::DoNotOptimize(limit()); });
    };
    add(
        "build", [=] { return MireloBatch(*features); }, [=] { return group(*features); });
    add(
        "rows", [=] { return batch->getFeatureSet(); }, [=] { return rowsOf(*groups); });
    add(
        "sorted list", [=] { return batch->getSortedFetures(descriptors); }, [=] { return flatten(*groups); });
}

}  // namespace

void addBatches() {
    addBatch("1 row", 1);
    addBatch("1,000 rows", 1000);
    addBatch("100,000 rows", 100000);
}

}  // namespace Bench
