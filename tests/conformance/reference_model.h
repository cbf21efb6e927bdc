#pragma once

#include "faults.h"

#include <TarnoMirelo/kit/memory.h>
#include <TarnoMirelo/kit/outputs.h>
#include <TarnoMirelo/model.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace TarnoMirelo {

/// A backend that computes the packages of the suite by their networks' names, and that can have a fault.
class ReferenceModel : public MireloModel {
 public:
    struct Traits {
        bool stacks = false;  ///< the host's promise
        bool binds = true;
        bool setsBatchSize = true;
    };

    ReferenceModel(const std::string& name, const std::shared_ptr<Device>& device, Traits traits, Fault fault);
    ~ReferenceModel() override;

 protected:
    MireloStatus onPredict(const Inputs& inputs, Outputs& outputs) const override;
    MireloStatus onPredictBatch(const Inputs& given, Outputs& outputs) const override;
    MireloStatus onBind(const Inputs& inputs, Outputs& outputs, std::shared_ptr<MireloBinding>& binding) const override;
    MireloStatus onEvaluate(std::shared_ptr<MireloBinding>& binding) const override;
    MireloStatus onLoad(const std::vector<ModelComponent>& components) override;
    MireloStatus onUnload() override;
    MireloStatus onSetBatchSize(const unsigned int& batchSize) override;

 private:
    struct Network;
    struct Bound;
    struct Computed;  // a result that owns its elements

    bool has(Fault fault) const { return fault_ == fault; }
    MireloStatus read(ModelComponent component, std::shared_ptr<Network>& network) const;
    MireloStatus run(const Inputs& given, Outputs& outputs, int64_t rows) const;
    MireloStatus runRows(const Inputs& inputs, Outputs& outputs) const;
    std::vector<Computed> compute(const Network& network, const Kit::InputTensors& inputs) const;
    std::vector<Computed> computeAll(const Network& network, const Kit::InputTensors& inputs) const;
    MireloStatus told(MireloStatus status, const Outputs& before, Outputs& outputs) const;
    void report(bool isLoad = false) const;
    static bool lacksInput(const Network& network, const Kit::InputTensors& tensors);
    Kit::InputTensors throughScratch(const Kit::InputTensors& tensors) const;

    // What a fault makes of the features that the host gives.
    Inputs tampered(const Inputs& inputs, bool inBatch) const;
    Outputs tampered(const Inputs& inputs, const Outputs& outputs) const;

    Traits traits_;
    Fault fault_;
    std::shared_ptr<Network> network_;  // bindings share it
    int64_t rows_ = 1;
    mutable std::mutex mutex_;  // of what follows
    mutable Kit::MemoryReporter reporter_;
    mutable bool hasReported_ = false;
    mutable uint64_t added_ = 0;  // to the report, by a fault
    mutable Kit::InputTensors scratch_;
    mutable Outputs lastOutputs_;
    mutable const ITensor* lastInput_ = nullptr;
    mutable std::vector<Computed> lastResults_;
    mutable std::shared_ptr<MireloBinding> lastBinding_;
    mutable std::shared_ptr<const MireloModel> self_;
};

}  // namespace TarnoMirelo
