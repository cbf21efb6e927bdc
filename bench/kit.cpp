// What the kit's checks cost, and a model that is traced without a sink.

#include "idle_model.h"
#include "measure.h"

#include <TarnoMirelo/kit/ports.h>
#include <TarnoMirelo/kit/trace.h>

#include <stdexcept>
#include <thread>

namespace Bench {
namespace {

using namespace TarnoMirelo;

// A target of so many inputs, and features for them.
struct Inputs {
    Inputs(size_t count, const std::string& name) {
        for (size_t i = 0; i < count; ++i) {
            const TensorDescriptor tensor(TensorShape(1, 3, 8, 8), DataType::Float);
            target.inputs.emplace_back(MireloFeatureType::Tensor, true, name + std::to_string(i), "", tensor);
            features.push_back(std::make_shared<MireloFeatureTensor>(target.inputs.back()));
        }
        if (!Kit::checkInputs(target, features).ok()) throw std::runtime_error("the inputs don't fit");
    }

    ModelTarget target;
    MireloModel::Inputs features;
};

}  // namespace

void addKit() {
    std::thread([] {}).join();  // hosts have threads, and shared pointers cost more from the first one on
    for (const char* const name : {"x", "a name of more than fifteen characters, "}) {
        for (const size_t count : {size_t{1}, size_t{17}}) {
            const auto inputs = std::make_shared<Inputs>(count, name);
            const auto ports = std::make_shared<Kit::InputPorts>(inputs->target);
            const std::string row = (name[1] == '\0' ? "short names, " : "long names, ") + std::to_string(count) +
                                    (count == 1 ? " input" : " inputs");
            measure("checkInputs, " + row, Side::Ours,
                    [=] { benchmark::DoNotOptimize(Kit::checkInputs(inputs->target, inputs->features)); });
            measure("InputPorts::check, " + row, Side::Ours,
                    [=] { benchmark::DoNotOptimize(ports->check(inputs->features)); });
        }
    }
    const auto inner = std::make_shared<IdleModel>("digits", MireloModelType::WinML);
    const std::shared_ptr<const MireloModel> traced = Kit::TracedModel::wrap(inner);
    const MireloModel::Inputs inputs;
    MireloModel::Outputs outputs;
    measure("predict, idle backend beside threads", Side::Ours,
            [=]() mutable { benchmark::DoNotOptimize(inner->predict(inputs, outputs)); });
    measure("TracedModel::predict, no sink, idle backend", Side::Ours,
            [=]() mutable { benchmark::DoNotOptimize(traced->predict(inputs, outputs)); });
}

}  // namespace Bench
