#pragma once

#include <TarnoMirelo/model.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace TarnoMirelo {

/// A backend whose hooks record their calls and return `answer`.
class ScriptedModel : public MireloModel {
 public:
    using MireloModel::isLoaded;
    using MireloModel::MireloModel;
    using MireloModel::runtimeRecord;

    MireloStatus answer{SUCCESS, ""};
    bool raises = false;
    mutable std::string calls;

 protected:
    MireloStatus onPredict(const Inputs& /*inputs*/, Outputs& /*outputs*/) const override { return note("predict"); }
    MireloStatus onPredictBatch(const Inputs& /*inputs*/, Outputs& /*outputs*/) const override {
        return note("predictBatch");
    }
    MireloStatus onLoad(const std::vector<ModelComponent>& components) override {
        return note("load " + std::to_string(components.size()));
    }
    MireloStatus onUnload() override { return note("unload"); }
    MireloStatus onSetBatchSize(const unsigned int& batchSize) override {
        return note("setBatchSize " + std::to_string(batchSize));
    }

    MireloStatus note(const std::string& call) const {
        if (raises) throw std::runtime_error("raised by " + call);
        calls += call + ";";
        return answer;
    }
};

/// One that binds and has another name than it was given.
class BindingModel : public ScriptedModel {
 public:
    using ScriptedModel::ScriptedModel;

    const std::string& getName() const override {
        static const std::string name = "another name";
        return name;
    }

 protected:
    MireloStatus onBind(const Inputs& /*inputs*/, Outputs& /*outputs*/,
                        std::shared_ptr<MireloBinding>& /*binding*/) const override {
        return note("bind");
    }
    MireloStatus onEvaluate(std::shared_ptr<MireloBinding>& /*binding*/) const override { return note("evaluate"); }
};

}  // namespace TarnoMirelo
