#include "boundary/backend.h"

#include <cstring>

namespace TarnoMirelo::Boundary {
namespace {

class OffHostTensor : public DeviceTensor {
 public:
    explicit OffHostTensor(const TensorShape& shape)
        : DeviceTensor(DataType::UInt8, shape, true), memory_(static_cast<size_t>(shape.size())) {}

    const uint8_t* buffer() const override { return nullptr; }
    uint8_t* buffer() override { return nullptr; }
    MireloStatus copyFromHost(const uint8_t* source, uint64_t size) override {
        if (size > memory_.size()) throw RangeException("beyond the tensor");
        std::memcpy(memory_.data(), source, size);
        return {SUCCESS, ""};
    }
    MireloStatus copyToHost(uint8_t* destination, uint64_t size) const override {
        std::memcpy(destination, memory_.data(), size);
        return {SUCCESS, ""};
    }
    void* nativeHandle() const override { return const_cast<uint8_t*>(memory_.data()); }

 private:
    std::vector<uint8_t> memory_;
};

class AddingModel : public MireloModel {
 public:
    AddingModel(const std::string& name, std::shared_ptr<FileUtils> files)
        : MireloModel(name, std::make_shared<Device>("Device", MireloModelType::WinML)), files_(std::move(files)) {}

 protected:
    MireloStatus onLoad(const std::vector<ModelComponent>& components) override {
        try {
            addend_ = std::stoi(files_->readBinaryFileToString(Filepath(components.at(0).path)));
            return {SUCCESS, ""};
        } catch (const FileException& error) {
            return {error.getStatusCode(), std::string("the host says: ") + error.what()};
        }
    }
    MireloStatus onUnload() override { return {SUCCESS, ""}; }
    MireloStatus onSetBatchSize(const unsigned int& /*rows*/) override { return {SUCCESS, ""}; }
    MireloStatus onPredict(const Inputs& inputs, Outputs& outputs) const override {
        const auto tensor = std::make_shared<OffHostTensor>(inputs.at(0)->asTensor()->shape());
        const auto& input = dynamic_cast<const DeviceTensor&>(*inputs.at(0)->asTensor());
        std::vector<uint8_t> values(static_cast<size_t>(input.bytes()));
        MireloStatus status = input.copyToHost(values.data(), values.size());
        for (uint8_t& value : values) value = static_cast<uint8_t>(value + addend_);
        tensor->copyFromHost(values.data(), values.size());
        outputs.push_back(std::make_shared<MireloFeatureTensor>(getModelTarget().outputs.at(0), tensor));
        return status;
    }
    MireloStatus onPredictBatch(const Inputs& /*inputs*/, Outputs& /*outputs*/) const override {
        throw MLFrameworkException("no batches");
    }

 private:
    std::shared_ptr<FileUtils> files_;
    int addend_ = 0;
};

}  // namespace

std::shared_ptr<MireloModel> makeModel(const std::string& name, std::shared_ptr<FileUtils> files) {
    return std::make_shared<AddingModel>(name, std::move(files));
}

std::shared_ptr<DeviceTensor> makeTensor(const TensorShape& shape) { return std::make_shared<OffHostTensor>(shape); }

MireloStatus flush(DeviceFence& fence, Device& device) { return fence.flush(&device); }

}  // namespace TarnoMirelo::Boundary
