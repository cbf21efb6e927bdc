#include <TarnoMirelo/kit/manager.h>
#include <TarnoMirelo/kit/texts.h>
#include <TarnoMirelo/onnxruntime.h>

#include <array>
#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <iostream>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using namespace TarnoMirelo;

namespace {

constexpr int kWorkers = 4;
constexpr int kReplacements = 5;

using Image = std::array<float, 64>;
using Answer = std::array<float, 10>;

void check(const MireloStatus& status) {
    if (!status.ok()) throw std::runtime_error(Kit::describe(status));
}

std::shared_ptr<MireloModel> loadModel(const ModelMetadata& package) {
    OnnxRuntime::Options options;
    options.threadsWithinNodes = 1;  // each worker computes on its own thread
    options.copies = kWorkers;       // and waits for no other
    auto model = std::make_shared<OnnxRuntime::Model>("digits", MireloModelType::WinML, MireloConfig(), options);
    check(model->load(package.getModelCompoents(MireloModelType::WinML)));
    return model;
}

// The model in service: workers use it at the same time, and it can be replaced while they do.
class Service {
 public:
    explicit Service(std::shared_ptr<MireloModel> model) : model_(manager_, std::move(model)) {}

    // Runs the work with the model, which stays loaded meanwhile. Calls may overlap.
    template <typename Work>
    void use(const Work& work) const {
        std::unique_lock<std::mutex> turn(turn_);
        const std::shared_lock<std::shared_mutex> use(use_);
        turn.unlock();
        work(std::shared_ptr<const MireloModel>(model_.model()));
    }

    // Waits until nobody uses the old model, unloads it and puts the new one in its place.
    void replace(std::shared_ptr<MireloModel> model) {
        const std::lock_guard<std::mutex> turn(turn_);  // new uses wait, so that the running ones come to an end
        const std::lock_guard<std::shared_mutex> use(use_);
        Kit::ScopedModel next(manager_, std::move(model));
        check(model_.unload());  // if it refuses, it stays
        model_ = std::move(next);
    }

    // The memory of the model in bytes. One call at a time; predictions may run meanwhile.
    uint64_t memory() {
        uint64_t bytes = 0;
        use([&](const auto& /*model*/) { bytes = manager_.getRuntimeStatus().getTotalMemoryConsumption(); });
        return bytes;
    }

 private:
    mutable std::mutex turn_;        // taken before use_: without it, uses that overlap would keep replace out
    mutable std::shared_mutex use_;  // shared while the model is used; exclusive while it is changed
    ModelManager manager_;
    Kit::ScopedModel model_;  // unloaded with the service
};

// What one thread predicts with: memory, tensors and a binding that no other thread touches.
class Worker {
 public:
    Worker() = default;
    Worker(const Worker&) = delete;  // the tensors refer to the members
    Worker& operator=(const Worker&) = delete;

    Answer predict(const std::shared_ptr<const MireloModel>& model, const Image& image) {
        if (model != model_) bind(model);
        image_ = image;
        check(model->evaluate(binding_));
        return answer_;
    }

 private:
    // A binding serves the model that made it.
    void bind(const std::shared_ptr<const MireloModel>& model) {
        const ModelTarget& target = model->getModelTarget();
        MireloModel::Outputs outputs{wrap(target.outputs.at(0), answer_)};
        check(model->bind({wrap(target.inputs.at(0), image_)}, outputs, binding_));
        model_ = model;
    }

    template <size_t count>
    static std::shared_ptr<MireloFeature> wrap(const ModelFeatureDescriptor& descriptor,
                                               std::array<float, count>& floats) {
        auto* const bytes = reinterpret_cast<uint8_t*>(floats.data());
        const TensorShape shape(1, count);
        return std::make_shared<MireloFeatureTensor>(
            descriptor, std::make_shared<BufferWrappedTensor>(DataType::Float, shape, bytes, sizeof floats));
    }

    Image image_{};
    Answer answer_{};
    std::shared_ptr<const MireloModel> model_;  // kept, so that no new model can have its address
    std::shared_ptr<MireloModel::MireloBinding> binding_;
};

// The answers to all images, computed by that many workers.
std::vector<Answer> recognise(const Service& service, const std::vector<Image>& images, size_t workers) {
    std::vector<Answer> answers(images.size());
    std::atomic<size_t> next{0};
    const auto work = [&] {
        Worker worker;
        for (size_t i = next++; i < images.size(); i = next++) {
            service.use([&](const auto& model) { answers[i] = worker.predict(model, images[i]); });
        }
    };
    std::vector<std::future<void>> pool(workers);
    for (std::future<void>& worker : pool) worker = std::async(std::launch::async, work);
    for (std::future<void>& worker : pool) worker.get();  // raises what the worker has raised
    return answers;
}

// Lines of a label, 64 pixels, and more that is not needed here.
std::vector<Image> readImages(const std::string& path) {
    std::ifstream file(path);
    std::vector<Image> images;
    std::string line;
    std::getline(file, line);  // the names of the columns
    while (std::getline(file, line)) {
        std::istringstream cells(line);
        std::string cell;
        std::getline(cells, cell, ',');
        Image image{};
        for (float& pixel : image) {
            std::getline(cells, cell, ',');
            pixel = std::stof(cell);
        }
        images.push_back(image);
    }
    if (images.empty()) throw std::runtime_error(path + " holds no images");
    return images;
}

const char* verdict(bool equal) { return equal ? "the same answers\n" : "OTHER ANSWERS\n"; }

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 2) throw std::invalid_argument("usage: host FOLDER");
    const std::vector<Image> images = readImages(argv[1] + std::string("/samples.csv"));
    ModelMetadata package;
    check(package.load(Filepath(argv[1]).append(Filepath("manifest.json"))));
    check(package.validate(MireloModelType::WinML));

    Service service(loadModel(package));
    const std::vector<Answer> expected = recognise(service, images, 1);
    bool equal = recognise(service, images, kWorkers) == expected;
    std::cout << kWorkers << " workers and 1: " << verdict(equal)
              << "the model's memory: " << static_cast<double>(service.memory()) / 1024 / 1024 << " MiB\n";

    auto replacing = std::async(std::launch::async, [&] {
        for (int i = 0; i < kReplacements; ++i) service.replace(loadModel(package));
    });
    do {
        equal = recognise(service, images, kWorkers) == expected && equal;
    } while (replacing.wait_for(std::chrono::seconds(0)) != std::future_status::ready);
    replacing.get();
    std::cout << "the model replaced " << kReplacements << " times: " << verdict(equal);
    return equal ? 0 : 1;
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
