#pragma once

#include "affine_engine.h"

#include <TarnoMirelo/kit/memory.h>
#include <TarnoMirelo/kit/outputs.h>
#include <TarnoMirelo/kit/ports.h>
#include <TarnoMirelo/model.h>

#include <memory>
#include <mutex>
#include <vector>

/// Runs affine networks on the CPU. The const operations of one model may overlap.
class AffineModel : public TarnoMirelo::MireloModel {
 public:
    using MireloModel::MireloModel;

 protected:
    TarnoMirelo::MireloStatus onLoad(const std::vector<TarnoMirelo::ModelComponent>& components) override;
    TarnoMirelo::MireloStatus onUnload() override;
    TarnoMirelo::MireloStatus onSetBatchSize(const unsigned int& rows) override;
    TarnoMirelo::MireloStatus onPredict(const Inputs& inputs, Outputs& outputs) const override;
    TarnoMirelo::MireloStatus onPredictBatch(const Inputs& inputs, Outputs& outputs) const override;
    TarnoMirelo::MireloStatus onBind(const Inputs& inputs, Outputs& outputs,
                                     std::shared_ptr<MireloBinding>& binding) const override;
    TarnoMirelo::MireloStatus onEvaluate(std::shared_ptr<MireloBinding>& binding) const override;

 private:
    struct Loaded {
        AffineEngine::Network network;
        TarnoMirelo::Kit::InputPorts inputs;
        TarnoMirelo::Kit::OutputPorts outputs;
    };

    // What a run reads and writes, in the manifest's order. An output that the host did not ask for is null.
    struct Tensors {
        TarnoMirelo::Kit::InputTensors inputs;
        TarnoMirelo::Kit::PreparedOutputs outputs;
    };
    struct Binding;

    TarnoMirelo::MireloStatus read(const std::vector<TarnoMirelo::ModelComponent>& components);
    TarnoMirelo::MireloStatus prepare(const Inputs& inputs, const Outputs& outputs, int64_t rows,
                                      Tensors& tensors) const;
    static void compute(const Loaded& loaded, const Tensors& tensors);
    TarnoMirelo::MireloStatus run(const Inputs& inputs, Outputs& outputs, int64_t rows) const;
    void reportMemory() const;

    std::shared_ptr<const Loaded> loaded_;  // null: not loaded. Bindings hold it, too
    mutable std::mutex reporterMutex_;
    mutable TarnoMirelo::Kit::MemoryReporter reporter_;
};
