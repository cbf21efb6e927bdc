// Allocating inputs, and tensors whose shape changes.

#include "idle_model.h"
#include "measure.h"

#include <opencv2/core.hpp>

#include <cstdlib>
#include <new>
#include <stdexcept>

namespace Bench {
namespace {

using namespace TarnoMirelo;

// Keeps the compiler from leaving the block out.
void use(void* block) {
    if (block == nullptr) throw std::bad_alloc();
    benchmark::DoNotOptimize(block);
}

void addAllocateInputs() {
    const std::pair<const char*, size_t> kSizes[] = {
        {"1 KB", size_t{1} << 10}, {"64 MiB", size_t{64} << 20}, {"1 GiB", size_t{1} << 30}};
    for (const auto& [name, size] : kSizes) {
        const std::string row = std::string("allocateInputs, ") + name;
        ModelTarget target;
        const TensorShape shape(1, static_cast<int64_t>(size));
        target.inputs.emplace_back(MireloFeatureType::Tensor, true, "pixels", "",
                                   TensorDescriptor(shape, DataType::UInt8));
        const auto model = std::make_shared<IdleModel>("digits", MireloModelType::WinML, target);
        const auto allocate = [=] {
            MireloModel::Outputs inputs;
            if (!model->allocateInputs(inputs).ok()) throw std::bad_alloc();
            use(inputs.front()->asTensor()->buffer());
        };
        measure(row, Side::Ours, allocate);
        measure(row, Side::Limit, [=, size = size] {
            void* const block = std::calloc(1, size);
            use(block);
            std::free(block);
        });
        if (size == size_t{64} << 20) {
            const std::string besides = row + ", beside cv::Mat::zeros";
            measure(besides, Side::Ours, allocate);
            measure(besides, Side::Instead, [] { use(cv::Mat(cv::Mat::zeros(64, 1 << 20, CV_8U)).data); });
        }
        measure(row, Side::Instead, [size = size] { use(std::make_unique<uint8_t[]>(size).get()); });
    }
}

void addVariableTensor() {
    const std::string row = "VariableTensor between two shapes";
    const auto tensor = std::make_shared<VariableTensor>(DataType::Float, TensorShape(-1, -1));
    const TensorShape large(16, 4096);
    const TensorShape small(1, 64);
    measure(row, Side::Ours, [=] {
        benchmark::DoNotOptimize(tensor->allocateShape(large));
        benchmark::DoNotOptimize(tensor->allocateShape(small));
        use(tensor->buffer());
    });
    struct Dimensions {
        int64_t rows = 0;
        int64_t columns = 0;
        int64_t bytes = 0;
    };
    const auto dimensions = std::make_shared<Dimensions>();
    measure(row, Side::Limit, [=] {
        for (const auto& [rows, columns] : {std::pair<int64_t, int64_t>{16, 4096}, {1, 64}}) {
            *dimensions = {rows, columns, rows * columns * 4};
            benchmark::DoNotOptimize(*dimensions);
        }
    });
    measure(row, Side::Instead, [] {
        for (const size_t elements : {size_t{16} * 4096, size_t{64}}) use(std::make_unique<float[]>(elements).get());
    });
}

}  // namespace

void addMemory() {
    addAllocateInputs();
    addVariableTensor();
}

}  // namespace Bench
