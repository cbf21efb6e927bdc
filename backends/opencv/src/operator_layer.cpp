#include "operator_layer.h"

#include "network.h"

#include <TarnoMirelo/kit/texts.h>
#include <TarnoMirelo/logging.h>
#include <TarnoMirelo/opencv.h>
#include <TarnoMirelo/operators.h>

#include <opencv2/dnn.hpp>
#include <opencv2/dnn/layer.hpp>

#include <limits>
#include <map>
#include <memory>
#include <mutex>

namespace TarnoMirelo::OpenCv {

Operator::Operator() = default;
Operator::~Operator() = default;

namespace {

// The operator of that name, null where it is none of this backend's.
std::unique_ptr<Operator> asOurs(std::unique_ptr<CustomOperators::Operator> created) {
    std::unique_ptr<Operator> ours(dynamic_cast<Operator*>(created.get()));
    if (ours != nullptr) (void)created.release();  // owned by the other pointer now
    return ours;
}

TensorShape shapeOf(const cv::Mat& matrix) { return std::vector<int64_t>(matrix.size.p, matrix.size.p + matrix.dims); }

std::shared_ptr<ITensor> tensorOver(const cv::Mat& matrix) {
    if (matrix.type() != CV_32F) throw InvalidTensorDataTypeException("Operators work on elements of type float only");
    return std::make_shared<BufferWrappedTensor>(DataType::Float, shapeOf(matrix), matrix.data,
                                                 matrix.total() * matrix.elemSize());
}

// An operator in the place of a layer.
class OperatorLayer : public cv::dnn::Layer {
 public:
    static cv::Ptr<cv::dnn::Layer> create(cv::dnn::LayerParams& params) { return cv::makePtr<OperatorLayer>(params); }

    explicit OperatorLayer(const cv::dnn::LayerParams& params)
        : Layer(params), operator_(asOurs(CustomOperators::getOperatorRegistry().createOperator(params.type))) {
        if (operator_ == nullptr) throw InvalidOperationException("The operator \"" + params.type + "\" is gone");
    }

    bool getMemoryShapes(const std::vector<cv::dnn::MatShape>& inputs, const int /*requiredOutputs*/,
                         std::vector<cv::dnn::MatShape>& outputs,
                         std::vector<cv::dnn::MatShape>& /*internals*/) const override {
        std::vector<TensorShape> shapes;
        shapes.reserve(inputs.size() + blobs.size());
        for (const auto& input : inputs) shapes.emplace_back(std::vector<int64_t>(input.begin(), input.end()));
        for (const cv::Mat& constant : blobs) shapes.push_back(shapeOf(constant));
        outputs.clear();
        for (const TensorShape& shape : operator_->outputShapes(shapes)) outputs.push_back(resultShape(shape));
        return false;  // the outputs have memory of their own
    }

    void forward(cv::InputArrayOfArrays inputs, cv::OutputArrayOfArrays outputs,
                 cv::OutputArrayOfArrays /*internals*/) override {
        std::vector<cv::Mat> from;
        std::vector<cv::Mat> to;
        inputs.getMatVector(from);
        outputs.getMatVector(to);
        std::vector<std::shared_ptr<const ITensor>> arguments;
        arguments.reserve(from.size() + blobs.size());
        std::vector<std::shared_ptr<ITensor>> results;
        results.reserve(to.size());
        for (const cv::Mat& matrix : from) arguments.push_back(tensorOver(matrix));
        for (const cv::Mat& constant : blobs) arguments.push_back(tensorOver(constant));
        for (const cv::Mat& matrix : to) results.push_back(tensorOver(matrix));
        const MireloStatus status = operator_->forward(arguments, results);
        const std::string text = type + ": " + status.getDescription();
        if (!status.ok() && !status.warn()) throw Exception(text, status.getCode());
        if (status.warn()) _Report_(false, LogProcessorTarget::None, LogSeverity::Warning, text);
    }

 private:
    // The engine asks before it knows the inputs' shapes, too; a dimension is 0 then.
    EngineShape resultShape(const TensorShape& shape) const {
        EngineShape result;
        for (const int64_t dimension : shape.shapeVector()) {
            if (dimension < 0 || dimension > std::numeric_limits<int>::max()) {
                throw Exception(type + ": an output can't have the shape " + Kit::toText(shape), INVALID_SHAPE);
            }
            result.push_back(static_cast<int>(dimension));
        }
        while (result.size() < 2) result.push_back(1);
        return result;
    }

    std::unique_ptr<Operator> operator_;
};

// How many loads use each type. Locked: the engine has one list for all models, and hosts load on several threads.
struct TypesInUse {
    std::mutex mutex;
    std::map<std::string, size_t> users;
};

TypesInUse& typesInUse() {
    static TypesInUse types;
    return types;
}

}  // namespace

LayerType::LayerType(const std::string& name) : name_(name) {
    TypesInUse& types = typesInUse();
    const std::lock_guard<std::mutex> lock(types.mutex);
    size_t& users = types.users[name];
    if (users == 0) cv::dnn::LayerFactory::registerLayer(name, &OperatorLayer::create);
    ++users;
}

LayerType::~LayerType() {
    TypesInUse& types = typesInUse();
    const std::lock_guard<std::mutex> lock(types.mutex);
    if (--types.users[name_] == 0) cv::dnn::LayerFactory::unregisterLayer(name_);
}

OperatorLayers::OperatorLayers(const std::set<std::string>& types) {
    for (const std::string& type : types) {
        if (asOurs(CustomOperators::getOperatorRegistry().createOperator(type)) != nullptr) types_.emplace_back(type);
    }
}

}  // namespace TarnoMirelo::OpenCv
