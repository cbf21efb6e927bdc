#include <TarnoMirelo/status.h>

#include <new>

namespace TarnoMirelo {

Exception::Exception(const std::string& message) : Exception(message, UNKNOWN_ERROR) {}
Exception::Exception(const std::string& message, const STATUS_CODE& code) : message_(message), code_(code) {}
Exception::~Exception() = default;

const char* Exception::what() const noexcept { return message_.c_str(); }
STATUS_CODE Exception::getStatusCode() const { return code_; }

FileException::FileException(const std::string& message) : Exception(message, FILE_ERROR) {}

InvalidOperationException::InvalidOperationException(const std::string& message)
    : Exception(message, INVALID_OPERATION) {}

InvalidArgumentsException::InvalidArgumentsException(const std::string& message)
    : Exception(message, INVALID_ARGUMENTS) {}

InvalidTypeException::InvalidTypeException(const std::string& message) : Exception(message, INVALID_TYPE) {}

InvalidTensorDataTypeException::InvalidTensorDataTypeException(const std::string& message)
    : Exception(message, INVALID_TENSOR_DATA_TYPE) {}

ModelMetaDataException::ModelMetaDataException(const std::string& message) : Exception(message, MODEL_METADATA_ERROR) {}

MLFrameworkException::MLFrameworkException(const std::string& message) : Exception(message, ML_FRAMEWORK_ERROR) {}

RangeException::RangeException(const std::string& message) : Exception(message, RANGE_ERROR) {}

namespace {

// Never raises: without memory for the text, the caller still gets the code.
MireloStatus describe(STATUS_CODE code, const char* text) {
    try {
        return {code, text == nullptr ? "" : text};
    } catch (const std::bad_alloc&) {
        MireloStatus status;
        status.setCode(code);
        return status;
    }
}

}  // namespace

MireloStatus getStatusFromCurrentException() {
    try {
        throw;
    } catch (const Exception& exception) {
        return describe(exception.getStatusCode(), exception.what());
    } catch (const std::exception& exception) {
        return describe(UNKNOWN_ERROR, exception.what());
    } catch (...) {
        return describe(UNKNOWN_ERROR, "unknown error occured");
    }
}

}  // namespace TarnoMirelo
