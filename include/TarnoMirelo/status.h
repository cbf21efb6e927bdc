#pragma once

/// @file
/// The outcome of an operation: `MireloStatus`, its codes, the exception family, and the way from one to the other.

#include <TarnoMirelo/export.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <unordered_map>

namespace TarnoMirelo {

enum class MireloModelType : uint64_t;

/// What became of an operation. The numbers are fixed: hosts compare them and usage properties spell them out. Numbers
/// between the listed ones are unassigned.
enum STATUS_CODE : int32_t {
    SUCCESS = 1,                    ///< it worked
    UNKNOWN_ERROR = 2,              ///< unspecified; the code of a default-constructed status
    FILE_ERROR = 3,                 ///< a file-system operation failed
    INVALID_OPERATION = 6,          ///< not allowed on this object in its present state or kind
    INVALID_ARGUMENTS = 7,          ///< an argument is unacceptable
    INVALID_TYPE = 8,               ///< a value is of the wrong type or kind
    INVALID_TENSOR_DATA_TYPE = 9,   ///< a tensor's element type is not the one required
    MODEL_REFERENCE_ERROR = 11,     ///< a model could not be removed from a manager's references
    MODEL_METADATA_ERROR = 12,      ///< the manifest or the model's components are missing, invalid or incomplete
    ML_FRAMEWORK_ERROR = 13,        ///< the inference engine behind a backend failed
    RANGE_ERROR = 14,               ///< an index is out of range
    MEMORY_CONSUMPTION_ERROR = 16,  ///< the answer to a recorded memory report, see `ModelRuntimeStatus`
    INVALID_SHAPE = 17,             ///< a tensor shape does not fit
    ALLOCATION_FAILED = 18,         ///< a buffer could not be allocated
    TAR_CHECKSUM_ERROR = 21,        ///< a tar header does not add up
    TAR_EXTRACTION_ERROR = 23,      ///< a tar archive holds an entry that can't be extracted
    WARNING = 27,                   ///< it worked, with a warning; only backends produce it
    NOT_IMPLEMENTED = 29,           ///< the selected backend does not implement the operation
};

/// The outcome of an operation: a code, a description for people, and named text properties.
///
/// A plain value that owns what it holds: copies are independent. One status may be read from several threads at once
/// as long as none changes it.
class MireloStatus {
 public:
    /// Text properties by their keys.
    using PropertyMap = std::unordered_map<std::string, std::string>;

    /// Code `UNKNOWN_ERROR`, empty description, no properties. Success is built explicitly, with the other constructor.
    MIRELO_API MireloStatus();
    /// That code and description, no properties.
    /// @param description  for people; copied, and kept as it is
    MIRELO_API MireloStatus(STATUS_CODE code, const std::string& description);

    /// What became of the operation.
    MIRELO_API STATUS_CODE getCode() const;
    /// Replaces the code; description and properties stay.
    MIRELO_API void setCode(STATUS_CODE code);

    /// A copy of the text that says what went wrong, for people; usually empty on success. Programs compare codes, not
    /// descriptions.
    MIRELO_API std::string getDescription() const;
    /// Replaces the description; code and properties stay.
    MIRELO_API void setDescription(std::string description);

    /// The value stored under `key`; raises `std::out_of_range` when there is none.
    MIRELO_API std::string getProperty(const std::string& key) const;
    /// A copy of all properties. Statuses of `MireloModel::load`, `predict`, `evaluate` and `doUnload` carry the usage
    /// properties listed there.
    MIRELO_API PropertyMap getPropertyMap() const;

    /// True exactly when the code is `SUCCESS`.
    MIRELO_API bool ok() const;
    /// True exactly when the code is `WARNING`.
    MIRELO_API bool warn() const;

    /// Internal, not exported: stores `value` under `key` unless the key is there; the first value set for a key wins.
    void setProperty(const std::string& key, const std::string& value);

 private:
    friend class UsageReporting;

    /// @cond  Doxygen would list it, although it is private
    // What the usage properties are made of. Each prediction reports them and few hosts read them, so the texts are
    // written when somebody asks: a stamp allocates nothing.
    struct UsageStamp {
        using Writer = void (*)(const UsageStamp& stamp, PropertyMap& properties);

        Writer write = nullptr;        // adds the properties whose keys are absent
        const char* method = nullptr;  // constant text
        MireloModelType modelType{};
        STATUS_CODE code = UNKNOWN_ERROR;              // the status's code when it was stamped
        std::shared_ptr<const std::string> modelName;  // null: no stamp; a status that was moved from has none
    };
    /// @endcond

    STATUS_CODE code_ = UNKNOWN_ERROR;
    std::string description_;
    std::shared_ptr<const PropertyMap> properties_;  // null while there are none; copies share what never changes
    UsageStamp usage_;                               // keys that properties_ has win
};

/// Base of everything that sdk-core raises by itself, apart from the standard exceptions that its operations name.
class MIRELO_API Exception : public std::exception {
 public:
    /// Code `UNKNOWN_ERROR`.
    explicit Exception(const std::string& message);
    /// An exception of any code.
    /// @param message  what `what` answers; copied
    /// @param code     of the status that the exception becomes, see `getStatusFromCurrentException`
    Exception(const std::string& message, const STATUS_CODE& code);
    /// Copies message and code. May raise `std::bad_alloc`.
    Exception(const Exception&) = default;
    /// Takes over a copy of message and code. May raise `std::bad_alloc`.
    Exception& operator=(const Exception&) = default;
    ~Exception() override;

    /// The message; valid while this object lives.
    const char* what() const noexcept override;
    /// The code of the status that the exception becomes.
    STATUS_CODE getStatusCode() const;

 private:
    std::string message_;
    STATUS_CODE code_;
};

/// A file can't be opened, deleted or created: raised by the operations of `FileUtils` that say so. Code `FILE_ERROR`.
class MIRELO_API FileException : public Exception {
 public:
    /// @param message  what `what` answers; copied
    explicit FileException(const std::string& message);
};

/// The object is in a state, or of a kind, that does not allow the operation. Code `INVALID_OPERATION`.
class MIRELO_API InvalidOperationException : public Exception {
 public:
    /// @param message  what `what` answers; copied
    explicit InvalidOperationException(const std::string& message);
};

/// An argument that the called function can't take, such as a null pointer. Code `INVALID_ARGUMENTS`.
class MIRELO_API InvalidArgumentsException : public Exception {
 public:
    /// @param message  what `what` answers; copied
    explicit InvalidArgumentsException(const std::string& message);
};

/// A value of another kind than the one asked for, such as `asTensor` on a feature that holds a number. Code
/// `INVALID_TYPE`.
class MIRELO_API InvalidTypeException : public Exception {
 public:
    /// @param message  what `what` answers; copied
    explicit InvalidTypeException(const std::string& message);
};

/// A tensor with another element type than the one required. Code `INVALID_TENSOR_DATA_TYPE`. For backends and hosts:
/// sdk-core never raises it.
class MIRELO_API InvalidTensorDataTypeException : public Exception {
 public:
    /// @param message  what `what` answers; copied
    explicit InvalidTensorDataTypeException(const std::string& message);
};

/// A manifest, or what was made of one, that is missing, invalid or incomplete. Code `MODEL_METADATA_ERROR`.
class MIRELO_API ModelMetaDataException : public Exception {
 public:
    /// @param message  what `what` answers; copied
    explicit ModelMetaDataException(const std::string& message);
};

/// The inference engine failed. Code `ML_FRAMEWORK_ERROR`. For backends: sdk-core never raises it.
class MIRELO_API MLFrameworkException : public Exception {
 public:
    /// @param message  what `what` answers; copied
    explicit MLFrameworkException(const std::string& message);
};

/// An index beyond the end. Code `RANGE_ERROR`.
class MIRELO_API RangeException : public Exception {
 public:
    /// @param message  what `what` answers; copied
    explicit RangeException(const std::string& message);
};

/// Turns the exception being handled into a status: a member of the family gives its code and message, any other
/// standard exception `UNKNOWN_ERROR` and its text, anything else `UNKNOWN_ERROR` and "unknown error occured".
/// Where memory does not suffice for the text, the description is empty.
///
/// Call it from inside a catch handler only: with no exception in flight the program ends.
MIRELO_API MireloStatus getStatusFromCurrentException();

}  // namespace TarnoMirelo
