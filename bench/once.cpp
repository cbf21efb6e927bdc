// What is counted instead of timed. Prints one "name value" a line:
//   variable_tensor_allocations  those of a thousand changes between two shapes
//   predict_allocations          those of a thousand calls
//   heap_growth                  bytes that a million calls of predict leave on the heap
// With a number as argument, it only calls predict that often; callgrind counts the instructions.

#include "idle_model.h"

#include <cstdlib>
#include <iostream>
#include <malloc.h>
#include <string>

// Names of the C library's own. NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace {

uint64_t allocations = 0;

}  // namespace

// They replace the C library's: every allocation of the process comes through here.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {
__attribute__((visibility("default"))) void* malloc(size_t size) {
    ++allocations;
    return __libc_malloc(size);
}
__attribute__((visibility("default"))) void* calloc(size_t count, size_t size) {
    ++allocations;
    return __libc_calloc(count, size);
}
__attribute__((visibility("default"))) void* realloc(void* block, size_t size) {
    ++allocations;
    return __libc_realloc(block, size);
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace {

using namespace TarnoMirelo;

uint64_t countVariableTensor() {
    VariableTensor tensor(DataType::Float, TensorShape(-1, -1));
    const TensorShape large(16, 4096);
    const TensorShape small(1, 64);
    tensor.allocateShape(large);
    const uint64_t before = allocations;
    for (int i = 0; i < 500; ++i) {
        tensor.allocateShape(small);
        tensor.allocateShape(large);
    }
    return allocations - before;
}

void predict(int times) {
    const Bench::IdleModel model("digits", MireloModelType::WinML);
    const MireloModel::Inputs inputs;
    MireloModel::Outputs outputs;
    for (int i = 0; i < times; ++i) {
        if (!model.predict(inputs, outputs).ok()) std::abort();
    }
}

uint64_t countPredictAllocations() {
    predict(1);
    const uint64_t before = allocations;
    predict(1);
    const uint64_t once = allocations - before;
    predict(1001);
    return allocations - before - 2 * once;
}

int64_t heapGrowth() {
    predict(1);
    const size_t before = ::mallinfo2().uordblks;
    predict(1000000);
    return static_cast<int64_t>(::mallinfo2().uordblks - before);
}

}  // namespace

// What is raised ends the program. NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
    if (argc > 1) {
        predict(std::stoi(argv[1]));
        return 0;
    }
    std::cout << "variable_tensor_allocations " << countVariableTensor() << "\npredict_allocations "
              << countPredictAllocations() << "\nheap_growth " << heapGrowth() << std::endl;
    return 0;
}
