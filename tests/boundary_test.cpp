// Objects, strings and exceptions that cross from the host to a backend in another shared library, and back.

#include "boundary/backend.h"
#include "support/text.h"

#include <gtest/gtest.h>

namespace TarnoMirelo {
namespace {

class HostFiles : public FileUtils {
 public:
    std::string readBinaryFileToString(const Filepath& path) override {
        if (path.getPathString() != "addend") throw FileException("no " + path.getPathString());
        return "40";
    }
};

class HostFence : public DeviceFence {
 public:
    HostFence() : DeviceFence(6, true) {}

 protected:
    MireloStatus signalFenceValue(Device* /*device*/, uint64_t /*value*/) override { return {SUCCESS, ""}; }
    uint64_t signalNextFenceValue(Device* device) override { return *getFenceValuePtr() += device->getId(); }
    MireloStatus waitForFenceValue(Device* device, uint64_t value, bool flag) const override {
        if (flag) throw RangeException("the host waits for " + std::to_string(value));
        return {WARNING, device->getDeviceName() + " at " + std::to_string(value)};
    }
    bool isFenceValueReached(uint64_t /*value*/) const override { return false; }
};

MireloModel::Components componentsOf(const std::string& path) {
    ModelTarget target;
    target.components.resize(1);
    target.components[0].path = path;
    target.outputs.emplace_back(MireloFeatureType::Tensor, TensorDescriptor(TensorShape(3), DataType::UInt8));
    return {MireloModelType::WinML, target, Filepath()};
}

}  // namespace

TEST(Boundary, ModelsAndTensorsOfABackendServeAHost) {
    const auto model = Boundary::makeModel(std::string(100, 'm'), std::make_shared<HostFiles>());
    ModelManager manager;
    EXPECT_EQ(text(model->load(componentsOf("missing"))), "3: the host says: no missing");
    EXPECT_EQ(text(model->load(componentsOf("addend"))), kSuccess);
    manager.registerModel(model);

    const auto tensor = Boundary::makeTensor(TensorShape(3));
    const uint8_t values[] = {0, 1, 2};
    tensor->copyFromHost(values, 3);
    const ModelFeatureDescriptor& descriptor = model->getModelTarget().outputs[0];
    const auto input = std::make_shared<MireloFeatureTensor>(descriptor, tensor);
    MireloModel::Outputs outputs;
    const MireloStatus status = model->predict({input}, outputs);
    EXPECT_EQ(list(text(status), status.getProperty("mireloondevice.modelName")),
              list(kSuccess, std::string(100, 'm')));
    uint8_t sums[3];
    ASSERT_NE(std::dynamic_pointer_cast<DeviceTensor>(outputs.at(0)->asTensor()), nullptr);
    std::dynamic_pointer_cast<DeviceTensor>(outputs.at(0)->asTensor())->copyToHost(sums, 3);
    EXPECT_EQ(list(+sums[0], +sums[1], +sums[2]), "40 41 42");

    EXPECT_EQ(text(manager.unloadModel(model)), kSuccess);
    EXPECT_THROW(tensor->resize(TensorShape(4)), InvalidOperationException);
}

TEST(Boundary, ExceptionsAreCaughtByType) {
    const auto model = Boundary::makeModel("model", nullptr);
    MireloModel::Outputs outputs;
    EXPECT_THROW(model->predictBatch({}, outputs), MLFrameworkException);
    EXPECT_THROW(Boundary::makeTensor(TensorShape(1))->copyFromHost(nullptr, 2), RangeException);
    EXPECT_EQ(raised([&] { model->predictBatch({}, outputs); }), "13: no batches");
}

TEST(Boundary, FencesAreCalledFromEitherSide) {
    Device device("Device", MireloModelType::WinML, DeviceType::NPU, OrtEP::Undefined, 0, 30);
    HostFence fence;
    EXPECT_EQ(raised([&] { fence.waitForCurrentFenceValue(&device, true); }), "14: the host waits for 6");
    EXPECT_EQ(text(Boundary::flush(fence, device)), "27: Device at 36");
    EXPECT_EQ(list(fence.getFenceValue(), fence.isShared()), "36 1");
}

}  // namespace TarnoMirelo
