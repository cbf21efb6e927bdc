// What is counted instead of timed. Prints one "name value" a line:
//   variable_tensor_allocations  those of a thousand changes between two shapes
//   predict_allocations          those of a thousand calls
//   heap_growth                  bytes that a million calls of predict leave on the heap
// With a number as argument, it only calls predict that often; callgrind counts the instructions.

#include "allocations.h"
#include "idle_model.h"

#include <cstdlib>
#include <iostream>
#include <malloc.h>
#include <string>

namespace {

using namespace TarnoMirelo;

uint64_t countVariableTensor() {
    VariableTensor tensor(DataType::Float, TensorShape(-1, -1));
    const TensorShape large(16, 4096);
    const TensorShape small(1, 64);
    tensor.allocateShape(large);
    const uint64_t before = Bench::allocations();
    for (int i = 0; i < 500; ++i) {
        tensor.allocateShape(small);
        tensor.allocateShape(large);
    }
    return Bench::allocations() - before;
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
    const uint64_t before = Bench::allocations();
    predict(1);
    const uint64_t once = Bench::allocations() - before;
    predict(1001);
    return Bench::allocations() - before - 2 * once;
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
