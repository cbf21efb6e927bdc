#pragma once

#include <TarnoMirelo/model.h>

namespace Bench {

/// A backend that does nothing: what a call costs is what the library adds, and the call of the hook.
class IdleModel : public TarnoMirelo::MireloModel {
 public:
    using MireloModel::MireloModel;

    /// The bare virtual call that `predict` and `evaluate` wrap.
    TarnoMirelo::MireloStatus callHook(const Inputs& inputs, Outputs& outputs) const {
        return onPredict(inputs, outputs);
    }

 protected:
    TarnoMirelo::MireloStatus onLoad(const std::vector<TarnoMirelo::ModelComponent>& /*components*/) override {
        return done();
    }
    TarnoMirelo::MireloStatus onUnload() override { return done(); }
    TarnoMirelo::MireloStatus onSetBatchSize(const unsigned int& /*rows*/) override { return done(); }
    TarnoMirelo::MireloStatus onPredict(const Inputs& /*inputs*/, Outputs& /*outputs*/) const override {
        return done();
    }
    TarnoMirelo::MireloStatus onPredictBatch(const Inputs& /*inputs*/, Outputs& /*outputs*/) const override {
        return done();
    }
    TarnoMirelo::MireloStatus onEvaluate(std::shared_ptr<MireloBinding>& /*binding*/) const override { return done(); }

 private:
    static TarnoMirelo::MireloStatus done() { return {TarnoMirelo::SUCCESS, ""}; }
};

}  // namespace Bench
